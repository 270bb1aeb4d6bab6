// Walks over the bridges that an operation is asked for: one, or all. Links are followed without
// the host's locks.
#pragma once

#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// Calls `operation` for `first` (may be null) and its following siblings, each followed by its
// whole subtree. The debug messages of the walk name `caller`.
void walk_bridges(bridge_rec *first, const char *caller, void (*operation)(bridge_rec *bridge));

// Returns the bridge at `bdf`; when there is none, the upstream bridge of the function there; else
// null.
bridge_rec *bridge_at_or_above(bdf_t bdf);

}  // namespace enable_features
