// The host's own configuration file.
//
//   [runtime]
//   HOPLAR_MODULE_LIST = file,arg,arg file,arg
//
// Modules are separated by blanks, their arguments by ",". The key may repeat; each line adds. A
// section [domain N], N hexadecimal, stands in the place of [runtime] for that domain. Lines that
// begin with "#" are comments.
#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "host/modules/module_entry.h"

namespace host {

struct HostConfig {
    std::vector<ModuleEntry> modules;  // of [runtime], in the order of the file
    std::map<unsigned, std::vector<ModuleEntry>> of_domain;  // of sections [domain N]
    std::vector<std::string> warnings;  // unknown sections and keys, passed over

    // Returns what the domain's own section lists, or else what [runtime] lists.
    const std::vector<ModuleEntry> &modules_of(unsigned domain) const;

    // Returns what all sections list.
    std::vector<ModuleEntry> all_modules() const;
};

// Reads a configuration file; modules are looked for beside it. Throws InputError for a file that
// cannot be read and for malformed lines, all of them in one error.
HostConfig read_host_config(const std::filesystem::path &file);

// Parses text that came from `file`.
HostConfig parse_host_config(const std::string &text, const std::filesystem::path &file);

}  // namespace host
