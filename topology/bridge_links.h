// Links of the host's bridge tree, for walks that hold none of the host's locks: each is read as
// one atomic word. Records are never freed, so a walk that meets a change stays among valid
// records.
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

// The functions on the secondary bus, each to be read with load(). Arrays are never freed either,
// so a list that is taken from the record while it is read stays whole; one that is half gone is
// empty.
inline std::span<const bdf_t> functions_below(const bridge_rec *bridge) {
    const std::uint32_t count = function_count(bridge);
    const bdf_t *first = __atomic_load_n(&bridge->devs, __ATOMIC_ACQUIRE);
    return first != nullptr ? std::span(first, count) : std::span<const bdf_t>();
}

// The host may put another function there meanwhile.
inline bdf_t load(const bdf_t &place) {
    return __atomic_load_n(&place, __ATOMIC_RELAXED);
}

}  // namespace enable_features
