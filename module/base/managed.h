// Tells which functions this server instance manages.
#pragma once

#include "platform/types.h"

namespace enable_features {

// Returns true when another server instance manages `bdf`: their IDs differ in the low 8 bits. Says
// so in the debug log, under the name of `caller`, a function of the module.
bool skip_unmanaged(const char *caller, bdf_t bdf);

}  // namespace enable_features
