// The PCI access library: functions by address, their header registers and capabilities.
//
// Addresses are accepted in plain and in ARI form. Unless stated, a function returns 0;
// PCI_ERR_INVALID for an address above BDF_HIGHEST; PCI_ERR_NO_DEVICE when no function answers
// there; PCI_ERR_NOT_SUPPORTED when the function has no such register; or any other code of the
// access. Out-parameters are written on success only and never null.
#pragma once

#include "capability.h"
#include "types.h"

// Wildcards of pci_device_find(). In a class code, 0xFF in the low byte matches any programming
// interface.
constexpr std::uint16_t ANY_VENDOR = 0xFFFF;
constexpr std::uint16_t ANY_DEVICE = 0xFFFF;
constexpr std::uint32_t ANY_CLASS = 0xFFFFFF;
constexpr std::uint32_t ANY_INTERFACE = 0x0000FF;

// The result of pci_device_get_type() for a PCI Express function.
constexpr int DEV_TYPE_PCIE = 100;

extern "C" {

// Returns the address of the index-th (from 0) function that matches, in ascending order of bus,
// device and function; BDF_NONE past the last. A function below a port with Device Control 2, ARI
// Forwarding Enable, set, whose device's function 0 carries the ARI capability, comes in ARI form,
// every other in plain form.
HOPLAR_EXPORT bdf_t pci_device_find(std::uint32_t index, std::uint16_t vendor, std::uint16_t device,
                                    std::uint32_t class_code);

// Returns DEV_TYPE_PCIE and stores PCI Express Capabilities, Device/Port Type (PORT_TYPE_*), for a
// function with a PCI Express capability. Returns another value, `*port_type` untouched, for every
// other function and when there is none.
HOPLAR_EXPORT int pci_device_get_type(bdf_t bdf, std::uint32_t *port_type);

// Returns the index (0 and up) of the first capability with that ID; negative when the function has
// none.
HOPLAR_EXPORT int pci_device_find_capid(bdf_t bdf, std::uint8_t capid);

// Makes a new object for the capability at `index`: a pcie_cap_t, msi_cap_t or msix_cap_t by its
// ID, a bare pci_cap_t otherwise. The caller frees it. PCI_ERR_INVALID for an index that names none
// of the function's capabilities; PCI_ERR_NO_MEMORY.
HOPLAR_EXPORT pci_err_t pci_device_read_cap(bdf_t bdf, pci_cap_t **object, int index);

// Returns true when Header Type (0x0E), Multi-Function Device (bit 7), is set in function 0 of the
// device, in the form given.
HOPLAR_EXPORT bool pci_device_is_multi_func(bdf_t bdf);

// Read header registers: Vendor ID (0x00), Command (0x04), Status (0x06), Secondary Bus Number
// (0x19) and Bridge Control (0x3E); the last two exist in header types 1 and 2 only.
HOPLAR_EXPORT pci_err_t pci_device_read_vid(bdf_t bdf, std::uint16_t *vendor);
HOPLAR_EXPORT pci_err_t pci_device_read_cmd(bdf_t bdf, std::uint16_t *value);
HOPLAR_EXPORT pci_err_t pci_device_read_status(bdf_t bdf, std::uint16_t *value);
HOPLAR_EXPORT pci_err_t pci_device_read_sec_busnum(bdf_t bdf, std::uint8_t *bus);
HOPLAR_EXPORT pci_err_t pci_device_read_bridge_ctrl(bdf_t bdf, std::uint16_t *value);

// Write Command or Bridge Control; `*after` is what the register then reads. PCI_ERR_INVALID for a
// handle that is not of the form in bdf.h.
HOPLAR_EXPORT pci_err_t pci_device_write_cmd(bdf_token token, std::uint16_t value,
                                             std::uint16_t *after);
HOPLAR_EXPORT pci_err_t pci_device_write_bridge_ctrl(bdf_token token, std::uint16_t value,
                                                     std::uint16_t *after);

// Returns the English text of an error code; an unknown code has a text too. The text is in static
// storage, which later calls do not change: one message may hold two texts.
HOPLAR_EXPORT const char *pci_strerror(pci_err_t code);

}  // extern "C"
