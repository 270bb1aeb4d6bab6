// Resolves paths component by component, each through the descriptor of its folder, so that the
// file that was checked is the file that is used, even if a name changes its meaning meanwhile.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <functional>
#include <string>

#include "host/base/descriptor.h"

namespace host {

struct Place {
    Descriptor folder;           // O_PATH
    std::string name;            // in the folder; empty if the path ends in a folder's own name
    Descriptor file;             // O_PATH; empty if there is no such file
    struct stat status {};       // of the file
    bool is_descriptor = false;  // true for /proc/PID/fd/N: a magic link, which must be opened and
                                 // not resolved by its text
};

// One component of a path, before it is followed if it is a link.
struct Step {
    const Descriptor &folder;
    const struct stat &folder_status;
    const std::string &name;
    const struct stat &status;
};

// Follows links. Calls `look` for each component that exists; it may throw. Throws
// std::system_error if a component other than the last does not exist or cannot be searched.
Place walk_path(const std::filesystem::path &path, const std::function<void(const Step &)> &look);

// Returns a name for the file of a descriptor, for calls that take no descriptor.
std::string descriptor_path(const Descriptor &descriptor);

}  // namespace host
