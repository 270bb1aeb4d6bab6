// Captures a function's MSI or MSI-X registers and writes them back.
//
// No lock is taken on a record: one record is used by one thread at a time. The MSI-X workers share
// a lock around the growth of save areas.
#pragma once

#include <cstdint>

#include "platform/capability.h"
#include "platform/server.h"
#include "platform/types.h"

namespace enable_features {

// The registers, at these offsets of the capability: Message Address (+4), Message Upper Address
// (+8, 64-bit address only, else 0), Message Data with the 16 bits after it (+8 or +12), Mask Bits
// (+12 or +16, Per-Vector Masking only, else 0), Message Control (+2).
struct msi_registers_t {
    std::uint32_t addr;
    std::uint32_t addr_u;
    std::uint32_t data;
    std::uint32_t mask;
    std::uint16_t ctrl;  // 0: no valid capture
};

// An entry of an MSI-X vector table, as it stands in memory.
struct msix_vector_t {
    std::uint32_t addr;
    std::uint32_t addr_u;
    std::uint32_t data;
    std::uint32_t control;
};

// Message Control (+2) and the vector table.
struct msix_registers_t {
    std::uint16_t ctrl;         // 0: no valid capture
    std::uint16_t num_vectors;  // entries that `vectors` has room for, 0 to 2048
    msix_vector_t *vectors;     // in table order; of malloc, null until the first capture. Grows
                                // and never shrinks; the owner of the record frees it.
};

// One capture, zero-filled by its owner before the first. A record serves one capability only. ctrl
// == 0 means "no capture", so a capability whose Message Control really reads 0 cannot be restored:
// MSI that is disabled, with a 32-bit address, one message and no masking; MSI-X that is disabled,
// with one vector.
struct msi_save_t {
    union {
        msi_registers_t msi;
        msix_registers_t msix;
    };
};

// In both operations a function without the capability, or whose vector table is not mapped, fails
// every access with PCI_ERR_INVALID, like a function whose address is above BDF_HIGHEST.
//
// Captures the registers of `capability`, CAPID_MSI or CAPID_MSIX. Returns PCI_ERR_INVALID for any
// other ID, else 0. `ctrl` of the record tells whether the capture is valid: it is 0 when Message
// Control could not be read, or the save area not grown. A register that cannot be read leaves its
// member as it was.
pci_err_t event_notification_reg_save(msi_save_t *record, event_notification_t *device,
                                      std::uint8_t capability);

// Writes a capture back, with the capability disabled until all is in place. Returns 0;
// PCI_ERR_INVALID for an unknown capability; PCI_ERR_IO without a valid capture, and when a write
// fails: the registers after it are then not written, and the capability stays disabled.
pci_err_t event_notification_reg_restore(msi_save_t *record, event_notification_t *device,
                                         std::uint8_t capability);

}  // namespace enable_features
