// Starts modules on the machine that is served.
#pragma once

#include <vector>

#include "host/modules/module_loader.h"

namespace host {

// Loads and starts the modules, then lowers payload sizes that exceed those of the ports above.
// Logs as warnings the sizes that were found out of bounds, and as a message what --complete would
// set.
std::vector<ModuleResult> start_up(const std::vector<ModuleEntry> &modules);

}  // namespace host
