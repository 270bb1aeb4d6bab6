// Finds the capabilities of one function. Both walks are bounded: they stop where a list loops,
// leaves the bytes that are there or points where no capability can be.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace host {

struct CapPosition {
    std::uint16_t id;
    std::uint16_t offset;

    bool operator==(const CapPosition &) const = default;
};

// Returns the 32 bits at an offset that is a multiple of 4; nullopt when they cannot be read.
using ReadDword = std::function<std::optional<std::uint32_t>(unsigned offset)>;

// Walks the list at 0x40 to 0xFF; returns its capabilities in list order.
std::vector<CapPosition> walk_capabilities(const ReadDword &read);

// Walks the extended list from 0x100. Call for PCI Express functions only: others may have anything
// there.
std::vector<CapPosition> walk_ext_capabilities(const ReadDword &read);

// Return the first capability with that ID: its index in the list, negative when absent; its
// offset.
int index_of_capability(const std::vector<CapPosition> &list, std::uint16_t id);
std::optional<std::uint16_t> first_capability(const std::vector<CapPosition> &list,
                                              std::uint16_t id);

// Reads 16 bits at an even offset through `read`.
std::optional<std::uint16_t> read_word(const ReadDword &read, unsigned offset);

}  // namespace host
