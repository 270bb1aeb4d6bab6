// Fields of registers, each named by its mask; the shift follows from the mask.
#pragma once

#include <bit>
#include <cstdint>

namespace enable_features {

template <typename Register>
constexpr unsigned get(Register value, Register mask) {
    return static_cast<unsigned>((value & mask) >> std::countr_zero(mask));
}

// `value` with the field set to `field`; bits of `field` beyond the mask are dropped.
template <typename Register>
constexpr Register set(Register value, Register mask, unsigned field) {
    const unsigned shifted = (field << std::countr_zero(mask)) & mask;
    return static_cast<Register>((value & ~unsigned{mask}) | shifted);
}

}  // namespace enable_features
