// Reads and writes registers of a capability through the host's hardware access. An address above
// BDF_HIGHEST gives PCI_ERR_INVALID, without an access.
#pragma once

#include <cstdint>

#include "platform/server.h"
#include "platform/types.h"

namespace enable_features {

// The position of a capability.
struct cap_place_t {
    bdf_t bdf;
    std::uint16_t offset;  // offset of the first byte in configuration space
};

// The position that stands for a missing capability: every access to it fails.
constexpr cap_place_t NO_PLACE = {.bdf = BDF_NONE, .offset = 0};

// `offset` counts from the capability's first byte. `value` changes on success only.
template <typename Register>
pci_err_t read_cap_register(const cap_place_t &cap, std::uint32_t offset, Register &value) {
    if (cap.bdf > BDF_HIGHEST)
        return PCI_ERR_INVALID;
    Register read = 0;
    const pci_err_t result = pci_hw->cfg_read(cap.bdf, cap.offset + offset, sizeof read, &read, 0);
    if (result == PCI_OK)
        value = read;
    return result;
}

template <typename Register>
pci_err_t write_cap_register(const cap_place_t &cap, std::uint32_t offset, Register value) {
    if (cap.bdf > BDF_HIGHEST)
        return PCI_ERR_INVALID;
    return pci_hw->cfg_write(cap.bdf, cap.offset + offset, sizeof value, &value, 0);
}

// Clears `bits` in a 16-bit register.
inline pci_err_t clear_cap_bits(const cap_place_t &cap, std::uint32_t offset, std::uint16_t bits) {
    std::uint16_t value = 0;
    const pci_err_t result = read_cap_register(cap, offset, value);
    if (result != PCI_OK)
        return result;
    return write_cap_register(cap, offset, static_cast<std::uint16_t>(value & ~bits));
}

}  // namespace enable_features
