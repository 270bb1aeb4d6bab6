// Finds the feature files that a configuration of the host hands to the module.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/requests/remarks.h"

namespace check {

struct NamedFile {
    std::string name;
    bool is_of_domain = true;  // modules of this domain are given it
};

// Returns the files, and remarks on arguments of the module that name none. Throws host::InputError
// for a configuration that cannot be used.
std::vector<NamedFile> read_config(const std::filesystem::path &config, unsigned domain,
                                   host::Remarks &remarks);

}  // namespace check
