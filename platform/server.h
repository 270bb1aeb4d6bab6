// The host server: its identity, its event records and its hardware access.
#pragma once

#include "capability.h"
#include "types.h"

// The value of an unknown packed version.
constexpr std::uint32_t BAD_VERSION = 0xFFFF'FFFF;

// Records behind event agents and event notification. The host owns all of them; modules only read.
struct event_device_t {
    bdf_t bdf;
};

struct event_capset_t {
    const event_device_t *device;
    msi_cap_t *msi;    // null when the function has no such capability
    msix_cap_t *msix;  // likewise
    rcec_cap_t *rcec;  // likewise
};

// The record of a root complex event collector.
struct event_agent_t {
    event_capset_t *capset;
};

// The event-notification record of a device.
struct event_notification_t {
    event_capset_t *capset;
};

// Hardware access to configuration space: `width` 1, 2 or 4 bytes at `offset` (0 to 4095, naturally
// aligned) of the function; `flags` is 0. Returns 0, PCI_ERR_INVALID, PCI_ERR_NO_DEVICE or
// PCI_ERR_IO. Values are in the processor's byte order.
struct pci_hw_ops_t {
    pci_err_t (*cfg_read)(bdf_t bdf, std::uint32_t offset, std::uint32_t width, void *value,
                          std::uint32_t flags);
    pci_err_t (*cfg_write)(bdf_t bdf, std::uint32_t offset, std::uint32_t width, const void *value,
                           std::uint32_t flags);
};

// The result of enum_next_ari_func() when there is no further function.
constexpr std::uint32_t ARI_NO_FUNCTION = 256;

extern "C" {

// The value of an unknown packed version, BAD_VERSION.
HOPLAR_EXPORT extern const std::uint32_t bad_version;

// Return the ID of this server instance, and of the instance that manages a function, even if no
// function answers there. IDs are compared on their low 8 bits.
HOPLAR_EXPORT std::uint32_t my_server_id(void);
HOPLAR_EXPORT std::uint32_t hoplar_get_id(bdf_t bdf);

// Returns the number (0 to 255) of the function after `bdf` (ARI form) in its device,
// ARI_NO_FUNCTION when there is none. `reserved` is 0. Source: ARI Capability (+0x04), Next
// Function Number, bits 15:8; the host of this repository ends the device at a number that is not
// higher, or at which no function answers, so that a chain that loops ends.
HOPLAR_EXPORT std::uint32_t enum_next_ari_func(bdf_t bdf, std::uint32_t reserved);

// Returns the record of the event collector at `bdf`; null when the host has none, or no memory for
// it.
HOPLAR_EXPORT event_agent_t *find_event_agent(bdf_t bdf);

// The hardware access operations; never null.
HOPLAR_EXPORT extern const pci_hw_ops_t *pci_hw;

}  // extern "C"
