// A function in the model: its bytes, and what they tell.
#pragma once

#include <bit>
#include <cstdint>
#include <optional>
#include <set>
#include <vector>

#include "host/base/address.h"

namespace host::fuzz::model {

// A function as its own bytes show it, and its settings as they are now.
struct Node {
    RoutingId id = 0;
    std::vector<std::uint8_t> bytes{};
    bool answers = false, bridge = false, multi = false, ari_form = false;
    bool there = true;     // not removed
    bool written = false;  // since payload sizes were last brought in bounds
    unsigned layout = 0, secondary = 0, subordinate = 0, class_code = 0;
    unsigned pcie = 0, msi = 0, msix = 0, aer = 0, ari = 0, sriov = 0;  // offsets; 0: none
    unsigned type = 0;
    std::set<unsigned> aer_places{};  // offsets of all such capabilities
    Node *parent = nullptr;           // the bridge above; null on a root bus

    std::optional<std::uint32_t> get(unsigned offset, unsigned width) const {
        if (offset + width > bytes.size())
            return std::nullopt;
        std::uint32_t value = 0;
        for (unsigned i = 0; i < width; ++i)
            value |= std::uint32_t{bytes[offset + i]} << 8 * i;
        return value;
    }
    std::uint32_t get_or_0(unsigned offset, unsigned width) const {
        // A register is read with its dword.
        return get(offset & ~3U, 4) ? *get(offset, width) : 0;
    }
    unsigned bus() const { return id >> 8; }
    unsigned device() const { return ari_form ? 0 : id >> 3 & 31; }
    unsigned number() const { return ari_form ? id & 255 : id & 7; }

    // A register of the PCI Express capability, which ends with the first 256 bytes.
    std::optional<std::uint32_t> express(unsigned offset, unsigned width) const {
        return pcie && pcie + offset + width <= 256 ? get(pcie + offset, width) : std::nullopt;
    }
    std::optional<unsigned> supported() const {
        const auto devcap = express(4, 4);
        return devcap ? std::optional(128U << (*devcap & 7)) : std::nullopt;
    }
    std::optional<unsigned> payload() const {
        const auto devctl = express(8, 2);
        return devctl ? std::optional(128U << (*devctl >> 5 & 7)) : std::nullopt;
    }
    void set_payload(unsigned size) {
        std::uint8_t &byte = bytes[pcie + 8];
        byte = static_cast<std::uint8_t>((byte & 0x1F) | std::countr_zero(size / 128) << 5);
    }
};

// Reads a function's own registers. What depends on other functions is left.
Node read_node(RoutingId id, const std::vector<std::uint8_t> &bytes);

// Gives a function's registers the defaults that a reset leaves, whether or not it answers.
void reset(Node &node);

// Returns false where capabilities overlap: no rule says what a reset leaves of them.
bool knows_reset(const Node &node);

}  // namespace host::fuzz::model
