// Reads and writes payload sizes in the registers of PCI Express functions; no other code of the
// feature does. Keeps no state and takes no lock; safe on any thread, also under the feature's or a
// bridge's locks.
//
// Sizes are in bytes; a field value n stands for 128 << n bytes.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

#include "feature_file/mps_value.h"
#include "platform/capability.h"
#include "platform/types.h"

namespace enable_features {

constexpr unsigned MPS_HIGHEST_CODE = 7;  // all three bits of the field

// Returns the bytes of a field value; the reserved values 6 and 7 give 8192 and 16384.
constexpr std::uint32_t decode_mps(unsigned code) {
    return MPS_LOWEST << std::min(code, MPS_HIGHEST_CODE);
}

// Returns the field value of the smallest payload that holds `size`, counting whole units of 128
// bytes; the highest value for everything beyond.
constexpr unsigned encode_mps(std::uint32_t size) {
    const std::uint32_t units = std::max(size / MPS_LOWEST, 1U);
    return std::min(static_cast<unsigned>(std::bit_width(units - 1)), MPS_HIGHEST_CODE);
}

// In the functions below, `cap` is the PCI Express capability object of `bdf`; with null, the
// function reads one itself.

// Returns the largest payload size that the function supports (Device Capabilities,
// Max_Payload_Size Supported), reserved values included; 0 when the register cannot be read.
std::uint32_t mps_read_max_capable(pcie_cap_t *cap, bdf_t bdf);

// Sets Device Control, Max_Payload_Size, of one function and changes no other field. `size` is a
// supported one. Returns 0, also when it was set already; PCI_ERR_NOT_SUPPORTED without the
// capability; PCI_ERR_IO when the register then holds another size; else the code of the access.
pci_err_t mps_write_mps(pcie_cap_t *cap, bdf_t bdf, std::uint32_t size);

// Sets the payload size of every function of a device; `bdf` is its function 0, which is left out
// when it is no endpoint. An error of function 0 stops the write; errors of the others do not.
// Returns the result of the last function visited.
pci_err_t mps_write_mps_all_funcs(bdf_t bdf, std::uint32_t size);

}  // namespace enable_features
