// The start of the module: version check, arguments, configuration files, features.
#pragma once

#include "platform/module.h"

namespace enable_features {

// Returns the module's version as server_mod_version() gives it. Safe on any thread.
std::uint32_t mod_version();

// Does the work of server_mod_init(); see platform/module.h. Call once, on the host's initialising
// thread.
pci_err_t start_module(const mod_init_args_t *args);

}  // namespace enable_features
