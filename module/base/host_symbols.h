// Finds the host's bridge look-ups by name on first use, so that the module also loads into a host
// without them.
#pragma once

#include "platform/bridge.h"

namespace enable_features {

// The host's functions; null until they have been found.
using bridge_lookup_t = bridge_rec *(*)(bridge_rec *start, bdf_t bdf);
extern bridge_lookup_t find_parent_bridge_p;
extern bridge_lookup_t find_bridge_bdf_p;

// Call the host's functions of the same names (platform/bridge.h); null also when the host does not
// offer the function. Every caller passes a null `start`. Safe on any thread; no lock is taken.
bridge_rec *find_parent_bridge(bridge_rec *start, bdf_t bdf);
bridge_rec *find_bridge_bdf(bridge_rec *start, bdf_t bdf);

}  // namespace enable_features
