// Function addresses taken apart, and the write handle made of one.
#pragma once

#include "platform/types.h"

namespace enable_features {

constexpr bool is_ari(bdf_t bdf) {
    return (bdf & BDF_ARI_FLAG) != 0;
}

constexpr unsigned bus_of(bdf_t bdf) {
    return (bdf >> 8) & 0xFF;
}

// 0 to 31; an ARI function counts as device 0.
constexpr unsigned device_of(bdf_t bdf) {
    return is_ari(bdf) ? 0 : (bdf >> 3) & 0x1F;
}

// 0 to 7; of an ARI function its number, 0 to 255.
constexpr unsigned function_of(bdf_t bdf) {
    return is_ari(bdf) ? bdf & 0xFF : bdf & 0x07;
}

// The same device's function 0, in the same form.
constexpr bdf_t function_0_of(bdf_t bdf) {
    return is_ari(bdf) ? (bdf & 0xFF00) | BDF_ARI_FLAG : bdf & 0xFFF8;
}

// Highest numbers in an address.
constexpr unsigned HIGHEST_BUS = 255;
constexpr unsigned HIGHEST_DEVICE = 31;
constexpr unsigned HIGHEST_FUNCTION = 7;
constexpr unsigned HIGHEST_ARI_FUNCTION = 255;

constexpr bdf_t plain_bdf(unsigned bus, unsigned device, unsigned function) {
    return bus << 8 | device << 3 | function;
}

constexpr bdf_t ari_bdf(unsigned bus, unsigned function) {
    return BDF_ARI_FLAG | bus << 8 | function;
}

// The write handle of `bdf`: layout in platform/types.h.
constexpr bdf_token token_of(bdf_t bdf) {
    const bdf_token ari = is_ari(bdf) ? 1 : 0;
    const bdf_token routing_id = bdf & BDF_ROUTING_ID;
    return WRITE_HANDLE_TAG | ari << 15 | (routing_id ^ WRITE_HANDLE_BDF_MASK) << 16 |
           (ari ^ WRITE_HANDLE_ARI_MASK) << 32;
}

}  // namespace enable_features

// The three arguments of "B%u:D%u:F%u".
#define BDF_ARGS(bdf)                                                                              \
    ::enable_features::bus_of(bdf), ::enable_features::device_of(bdf),                             \
        ::enable_features::function_of(bdf)
