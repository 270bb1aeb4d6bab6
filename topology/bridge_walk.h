// Bridges that an operation is asked for: one, or all. Links are followed without the host's locks.
#pragma once

#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// Calls `operation` for `first` (may be null) and its following siblings, each followed by its
// whole subtree. `caller` is whom the debug messages of the walk name.
void walk_bridges(bridge_rec *first, const char *caller, void (*operation)(bridge_rec *bridge));

// The bridge at `bdf`, else the bridge above the function there, else null.
bridge_rec *bridge_at_or_above(bdf_t bdf);

}  // namespace enable_features
