// The host's own configuration file.
//
//   [runtime]
//   HOPLAR_MODULE_LIST = file,arg,arg file,arg
//
// Modules are separated by blanks, their arguments by ",". The key may repeat; each line adds.
// Lines that begin with "#" are comments.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/modules/module_entry.h"

namespace host {

struct HostConfig {
    std::vector<ModuleEntry> modules;   // in the order of the file
    std::vector<std::string> warnings;  // unknown sections and keys, passed over
};

// Reads a configuration file; modules are looked for beside it. Throws InputError for a file that
// cannot be read and for malformed lines, all of them in one error.
HostConfig read_host_config(const std::filesystem::path &file);

// Parses text that came from `file`.
HostConfig parse_host_config(const std::string &text, const std::filesystem::path &file);

}  // namespace host
