// Starting modules on the machine that is served.
#pragma once

#include <vector>

#include "host/modules/module_loader.h"

namespace host {

// Loads and starts them, then brings payload sizes back below those of the ports above. What was
// found out of bounds is said in warnings, and what --complete would set in a message.
std::vector<ModuleResult> start_up(const std::vector<ModuleEntry> &modules);

}  // namespace host
