// The hooks of the MPS feature. They run on the host's threads, several at once, and possibly while
// start-up still programs.
#pragma once

#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// Programs the hierarchy's size, never an entry's request, again after a reset: a secondary bus
// reset (RESET_TYPE_BUS) loses it on everything below a bridge, a function-level reset
// (RESET_TYPE_FLR) on one function. Hierarchies that were never programmed are left alone. `status`
// is only printed. Takes the endpoint list's lock while it programs a whole hierarchy, and no lock
// of the feature while it writes one device or function.
void post_reset_mps_enable(std::uint32_t reset_type, bdf_t bdf, int status);

// Hot-plug is not supported: these hooks log a warning and change nothing.
void post_insertion_mps_enable(bridge_rec *bridge, std::uint32_t event_value, int status);
void pre_removal_mps_disable(bridge_rec *bridge, std::uint32_t event_value, int status);

}  // namespace enable_features
