// Paths resolved component by component, each through the descriptor of its folder, so that what
// was looked at is what is used, whoever renames or replaces something meanwhile.
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
    bool is_descriptor = false;  // /proc/PID/fd/N: the file that the descriptor is open on
};

// One component of a path, a link among them, before it is followed.
struct Step {
    const Descriptor &folder;
    const struct stat &folder_status;
    const std::string &name;
    const struct stat &status;
};

// Follows links. `look` is called for each component that exists and may throw. Throws
// std::system_error if a component other than the last does not exist or cannot be searched.
Place walk_path(const std::filesystem::path &path, const std::function<void(const Step &)> &look);

// The file that a descriptor stands for under a name, for calls that take no descriptor.
std::string descriptor_path(const Descriptor &descriptor);

}  // namespace host
