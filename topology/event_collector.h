// Finds the root complex event collector that serves a function.
#pragma once

#include "platform/types.h"

namespace enable_features {

// Returns the first event collector, in order of enumeration, that `bdf` is associated with;
// BDF_NONE when there is none. Collectors for which the host has no event agent, or no association
// capability, are passed over. Keeps no state and takes no lock.
bdf_t find_rcec(bdf_t bdf);

}  // namespace enable_features
