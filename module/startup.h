// The module's start: version check, options, configuration, features.
#pragma once

#include "platform/module.h"

namespace enable_features {

// The module's version as server_mod_version() gives it. Any thread.
std::uint32_t mod_version();

// What server_mod_init() does; see platform/module.h. Once, on the host's initialising thread.
pci_err_t start_module(const mod_init_args_t *args);

}  // namespace enable_features
