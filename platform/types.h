// Values shared by every interface of the platform: function addresses (bdf.h), error codes, port
// types.
//
// The headers of platform/ declare what a host server and its PCI access library offer to a module.
// All that is declared has C linkage and a plain C layout; the headers themselves are C++. What is
// in namespace pci is the PCI standard's (addresses, registers) and needs no host.
// Unless a declaration says otherwise, operations may be called from any thread. None takes a
// bridge's children_lock or devs_lock (bridge.h): a module may hold them while it calls.
#pragma once

#include <cstdint>

#include "bdf.h"

// Exports a name from the object that defines it: the host's exports, and a module's two.
#define HOPLAR_EXPORT __attribute__((visibility("default")))

// An error code: 0 is success. pci_strerror() gives the text.
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

// PCI Express Capabilities, Device/Port Type (bits 7:4).
constexpr std::uint8_t PORT_TYPE_ENDPOINT = 0;
constexpr std::uint8_t PORT_TYPE_LEGACY_ENDPOINT = 1;
constexpr std::uint8_t PORT_TYPE_ROOT_PORT = 4;
constexpr std::uint8_t PORT_TYPE_SWITCH_UPSTREAM = 5;
constexpr std::uint8_t PORT_TYPE_SWITCH_DOWNSTREAM = 6;
constexpr std::uint8_t PORT_TYPE_PCIE_TO_PCI = 7;
constexpr std::uint8_t PORT_TYPE_PCI_TO_PCIE = 8;
constexpr std::uint8_t PORT_TYPE_RCIEP = 9;  // root complex integrated endpoint
constexpr std::uint8_t PORT_TYPE_EVENT_COLLECTOR = 10;

namespace pci {

// Returns true for the types of port that stand above a link, whose secondary side is the link.
constexpr bool is_above_link(unsigned port_type) {
    return port_type == PORT_TYPE_ROOT_PORT || port_type == PORT_TYPE_SWITCH_DOWNSTREAM ||
           port_type == PORT_TYPE_PCI_TO_PCIE;
}

}  // namespace pci

// Class Code: base class in bits 23:16, sub-class in 15:8, programming interface in 7:0.
constexpr std::uint32_t HOST_BRIDGE_CLASS = 0x060000;
constexpr std::uint32_t PCI_BRIDGE_CLASS = 0x060400;
constexpr std::uint32_t EVENT_COLLECTOR_CLASS = 0x080700;
