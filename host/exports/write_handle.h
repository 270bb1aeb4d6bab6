// Write handles taken apart: the layout is in platform/types.h.
#pragma once

#include <optional>

#include "platform/types.h"

namespace host {

// The address that the handle names; nothing when it is not of the documented form.
constexpr std::optional<bdf_t> bdf_of_handle(bdf_token token) {
    const bdf_token ari = (token >> 32 & 0xFFFF) ^ WRITE_HANDLE_ARI_MASK;
    const bdf_token expected_low = WRITE_HANDLE_TAG | ari << 15;
    if (ari > 1 || (token & 0xFFFF) != expected_low || token >> 48 != 0)
        return std::nullopt;
    const bdf_token routing_id = (token >> 16 & 0xFFFF) ^ WRITE_HANDLE_BDF_MASK;
    return static_cast<bdf_t>(routing_id | (ari ? BDF_ARI_FLAG : 0));
}

// Whether the handle names that function, in either form.
constexpr bool names_function(bdf_token token, bdf_t bdf) {
    const std::optional<bdf_t> named = bdf_of_handle(token);
    return named && (*named & BDF_ROUTING_ID) == (bdf & BDF_ROUTING_ID);
}

}  // namespace host
