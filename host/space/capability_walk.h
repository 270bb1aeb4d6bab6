// Finds the capabilities of one function. Both walks are bounded: a list that loops, leaves the
// bytes that are there or points where no capability can be ends there.
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

// The 32 bits at an offset that is a multiple of 4, or nothing when they cannot be read.
using ReadDword = std::function<std::optional<std::uint32_t>(unsigned offset)>;

// In list order. Conventional list: 0x40 to 0xFF.
std::vector<CapPosition> walk_capabilities(const ReadDword &read);

// Extended list: from 0x100. For PCI Express functions only: others may have anything there.
std::vector<CapPosition> walk_ext_capabilities(const ReadDword &read);

// The first one with that ID: its place in the list, negative when absent; its offset.
int index_of_capability(const std::vector<CapPosition> &list, std::uint16_t id);
std::optional<std::uint16_t> first_capability(const std::vector<CapPosition> &list,
                                              std::uint16_t id);

// 16 bits at an even offset, taken out of `read`.
std::optional<std::uint16_t> read_word(const ReadDword &read, unsigned offset);

}  // namespace host
