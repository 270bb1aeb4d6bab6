// Which root complex event collector serves a function.
#pragma once

#include "platform/types.h"

namespace enable_features {

// The first event collector, in order of enumeration, that `bdf` is associated with; BDF_NONE when
// there is none. Collectors of which the host knows no event agent, or no association capability,
// are passed over. No state, no locks.
bdf_t find_rcec(bdf_t bdf);

}  // namespace enable_features
