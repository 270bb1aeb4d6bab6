// Links of the host's bridge tree, for walks that hold none of the host's locks: each is read as
// one atomic word. Records are never freed, so a walk that meets a change stays among valid
// records.
#pragma once

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

}  // namespace enable_features
