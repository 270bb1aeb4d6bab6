// Payload sizes in the registers of PCI Express functions: the only code of the feature that reads
// or writes them. No state, no locks; any thread, also under the feature's or a bridge's locks.
//
// Sizes are bytes everywhere; in the registers' Max_Payload_Size fields a code n stands for
// 128 << n.
#pragma once

#include <algorithm>
#include <bit>
#include <cstdint>

#include "platform/capability.h"
#include "platform/types.h"

namespace enable_features {

constexpr std::uint32_t MPS_LOWEST = 128;
constexpr std::uint32_t MPS_HIGHEST = 4096;
constexpr std::uint32_t MPS_DEFAULT = 128;      // every element takes it
constexpr std::uint32_t MPS_MAX = 0xFFFF'FFFF;  // in requests: the largest that the path allows

// The one size test. Sizes between the powers of two pass it: a write rounds them up and then
// reports that they did not take.
constexpr bool is_a_supported_mps(std::uint32_t size) {
    return size >= MPS_LOWEST && size <= MPS_HIGHEST && size % MPS_LOWEST == 0;
}

constexpr unsigned MPS_HIGHEST_CODE = 7;  // of the three bits

// Bytes of a code, the reserved codes 6 and 7 included (8192 and 16384).
constexpr std::uint32_t decode_mps(unsigned code) {
    return MPS_LOWEST << std::min(code, MPS_HIGHEST_CODE);
}

// Code of the smallest payload that holds `size`, counting whole units of 128 bytes; the highest
// for everything beyond.
constexpr unsigned encode_mps(std::uint32_t size) {
    const std::uint32_t units = std::max(size / MPS_LOWEST, 1U);
    return std::min(static_cast<unsigned>(std::bit_width(units - 1)), MPS_HIGHEST_CODE);
}

// A `cap` is the PCI Express capability object of `bdf`, or null: the operation then reads one
// itself.

// Largest payload size that the function supports, unchecked; 0 when it cannot be read.
std::uint32_t mps_read_max_capable(pcie_cap_t *cap, bdf_t bdf);

// Sets the payload size of one function, and touches nothing else in its Device Control. `size` is
// a supported one. 0, also when it was set already; PCI_ERR_NOT_SUPPORTED without the capability;
// PCI_ERR_IO when the register then holds another size; else the code of the access.
pci_err_t mps_write_mps(pcie_cap_t *cap, bdf_t bdf, std::uint32_t size);

// Sets the payload size of every function of a device; `bdf` is its function 0, which is left out
// when it is no endpoint. An error of function 0 ends it; errors of the others do not, and the
// result is that of the last function visited.
pci_err_t mps_write_mps_all_funcs(bdf_t bdf, std::uint32_t size);

}  // namespace enable_features
