// Values shared by every interface of the platform: function addresses, error codes, port types.
//
// Everything under platform/ is declaration only: what a host server and its PCI access library
// offer to a module. All names have C linkage and plain C layouts; the headers themselves are C++.
// Unless a declaration says otherwise, operations may be called from any thread. None takes a
// bridge's children_lock or devs_lock (bridge.h): a module may hold them while it calls.
#pragma once

#include <cstdint>

// Marks a name that leaves the object which defines it: the host's exports, and a module's two.
#define HOPLAR_EXPORT __attribute__((visibility("default")))

// Address of a function (bus, device, function).
//   plain form  bits 15:8 bus, 7:3 device (0-31), 2:0 function (0-7)
//   ARI form    bit 16 set, bits 15:8 bus, 7:0 ARI function number (0-255); the device counts as 0
// Both forms of one function share bits 15:0, its routing ID. Values above 0x1FFFF address nothing.
using bdf_t = std::uint32_t;

constexpr bdf_t BDF_ARI_FLAG = 0x0001'0000;
constexpr bdf_t BDF_ROUTING_ID = 0x0000'FFFF;
constexpr bdf_t BDF_HIGHEST = 0x0001'FFFF;
constexpr bdf_t BDF_NONE = 0xFFFF'FFFF;  // no function; in requests, all functions

// Error code: 0 is success. pci_strerror() gives the text.
using pci_err_t = std::uint32_t;

constexpr pci_err_t PCI_OK = 0;
constexpr pci_err_t PCI_ERR_NOTHING_TO_DO = 2;  // a feature without entries; not a failure
constexpr pci_err_t PCI_ERR_IO = 5;             // an access failed or did not take effect
constexpr pci_err_t PCI_ERR_NO_MEMORY = 12;
constexpr pci_err_t PCI_ERR_FILE_UNREADABLE = 17;    // a configuration file cannot be read
constexpr pci_err_t PCI_ERR_NO_DEVICE = 19;          // no function at that address
constexpr pci_err_t PCI_ERR_INVALID = 22;            // invalid argument
constexpr pci_err_t PCI_ERR_NOT_SUPPORTED = 48;      // no such capability or control
constexpr pci_err_t PCI_ERR_ALREADY = 237;           // already in the requested state
constexpr pci_err_t PCI_ERR_NO_BUSCFG_SYMBOL = 417;  // the host does not export "buscfg"
constexpr pci_err_t PCI_ERR_INCOMPATIBLE = 418;      // library or server too old
constexpr pci_err_t PCI_ERR_NO_BUSCFG_OBJECT = 420;  // the host's "buscfg" holds null

// Device/Port Type field of the PCI Express Capabilities register (bits 7:4).
constexpr std::uint8_t PORT_TYPE_ENDPOINT = 0;
constexpr std::uint8_t PORT_TYPE_LEGACY_ENDPOINT = 1;
constexpr std::uint8_t PORT_TYPE_ROOT_PORT = 4;
constexpr std::uint8_t PORT_TYPE_SWITCH_UPSTREAM = 5;
constexpr std::uint8_t PORT_TYPE_SWITCH_DOWNSTREAM = 6;
constexpr std::uint8_t PORT_TYPE_PCIE_TO_PCI = 7;
constexpr std::uint8_t PORT_TYPE_PCI_TO_PCIE = 8;
constexpr std::uint8_t PORT_TYPE_RCIEP = 9;  // root complex integrated endpoint
constexpr std::uint8_t PORT_TYPE_EVENT_COLLECTOR = 10;

// Class codes: base class in bits 23:16, subclass in 15:8, programming interface in 7:0.
constexpr std::uint32_t HOST_BRIDGE_CLASS = 0x060000;
constexpr std::uint32_t PCI_BRIDGE_CLASS = 0x060400;
constexpr std::uint32_t EVENT_COLLECTOR_CLASS = 0x080700;

// Write handle: names the function that a write operation changes, passed by value. A module makes
// it from the function's bdf_t:
//   bits  7:0   WRITE_HANDLE_TAG
//   bit   15    the ARI flag of the address (bits 14:8 are zero)
//   bits 31:16  bits 15:0 of the address, exclusive or WRITE_HANDLE_BDF_MASK
//   bits 47:32  the ARI flag as 0 or 1, exclusive or WRITE_HANDLE_ARI_MASK
//   bits 63:48  zero
// An operation refuses a handle that is not of this form, or that names another function than the
// object it is called on, with PCI_ERR_INVALID.
using bdf_token = std::uint64_t;

constexpr std::uint8_t WRITE_HANDLE_TAG = 0x9D;
constexpr std::uint16_t WRITE_HANDLE_BDF_MASK = 0x5A3C;
constexpr std::uint16_t WRITE_HANDLE_ARI_MASK = 0xC3A5;
