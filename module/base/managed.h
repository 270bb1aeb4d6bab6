// Which functions are this server instance's.
#pragma once

#include "platform/types.h"

namespace enable_features {

// True when another server instance manages `bdf` (IDs differ in their low 8 bits); says so in the
// debug log, in the name of the module's function `caller`.
bool skip_unmanaged(const char *caller, bdf_t bdf);

}  // namespace enable_features
