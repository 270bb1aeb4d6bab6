// Finds the feature files that a configuration of the host hands to the module.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/requests/remarks.h"

namespace check {

// Returns the files, and remarks on arguments of the module that name none. Throws host::InputError
// for a configuration that cannot be used.
std::vector<std::string> read_config(const std::filesystem::path &config, host::Remarks &remarks);

}  // namespace check
