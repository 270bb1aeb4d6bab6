// Reads the links of the host's bridge tree for walks that hold none of the host's locks. Each link
// is read as one atomic word. Records are never freed, so a walk that meets a change stays among
// valid records.
#pragma once

#include <span>

#include "platform/bridge.h"

namespace enable_features {

inline bridge_rec *first_child(const bridge_rec *bridge) {
    return __atomic_load_n(&bridge->children, __ATOMIC_ACQUIRE);
}

inline bridge_rec *next_sibling(const bridge_rec *bridge) {
    return __atomic_load_n(&bridge->next_sibling, __ATOMIC_ACQUIRE);
}

inline std::uint32_t child_count(const bridge_rec *bridge) {
    return __atomic_load_n(&bridge->num_children, __ATOMIC_RELAXED);
}

inline std::uint32_t function_count(const bridge_rec *bridge) {
    return __atomic_load_n(&bridge->num_devs, __ATOMIC_ACQUIRE);
}

// Returns the functions on the secondary bus; read each with load(). The host never frees an array
// of functions, so the span stays valid when the record gets another array meanwhile. It is empty
// when the count was read before the array was set.
inline std::span<const bdf_t> functions_below(const bridge_rec *bridge) {
    const std::uint32_t count = function_count(bridge);
    const bdf_t *first = __atomic_load_n(&bridge->devs, __ATOMIC_ACQUIRE);
    return first != nullptr ? std::span(first, count) : std::span<const bdf_t>();
}

// The host may replace the function at `place` meanwhile, so it is read as one atomic word.
inline bdf_t load(const bdf_t &place) {
    return __atomic_load_n(&place, __ATOMIC_RELAXED);
}

}  // namespace enable_features
