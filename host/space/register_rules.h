// Derives the writable bits of a function's registers from its own header and capabilities.
#pragma once

#include <compare>
#include <cstdint>
#include <span>
#include <vector>

namespace host {

// One writable register of one function. Masks and values are as wide as the register.
struct RegisterRule {
    std::uint16_t offset;
    std::uint8_t width;        // 1, 2 or 4
    std::uint32_t rw;          // bits that software writes
    std::uint32_t w1c;         // bits that software clears by writing 1
    std::uint32_t reset_mask;  // bits that a reset sets to the bits of reset_value
    std::uint32_t reset_value;

    // The check takes the 0 of the comparison that the compiler writes for a pointer.
    auto operator<=>(const RegisterRule &) const = default;  // NOLINT(modernize-use-nullptr)
};

// Returns the rules of the function with these bytes, ascending by offset. A register that is not
// wholly among the bytes has none.
std::vector<RegisterRule> register_rules(std::span<const std::uint8_t> bytes);

}  // namespace host
