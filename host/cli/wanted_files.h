// Finds the modules and files that the options and the host configuration name.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "host/cli/options.h"
#include "host/modules/host_config.h"
#include "host/modules/module_entry.h"

namespace host {

// The modules of the configuration, with those of the command line behind those of each section.
// Logs what the configuration has in vain. Throws InputError for a configuration that cannot be
// used, and for files that others than root can write to.
HostConfig wanted_modules(const Options &options);

struct ModuleArguments {
    // The absolute paths of what --config=FILE, or --config and the argument behind it, name,
    // whether or not that exists.
    std::vector<std::filesystem::path> files;
    std::vector<std::string> others;
};

ModuleArguments sort_arguments(const ModuleEntry &module);

// Returns true for the module that reads feature files.
bool reads_feature_files(const ModuleEntry &module);

// Returns what is wrong with one of its other arguments, which names no file to it or not as it is
// documented; empty when nothing is.
std::string argument_complaint(const std::string &argument);

// Absolute paths of what a start reads, each once: the configuration, then each module, and behind
// it what its arguments --config name, whether or not that exists. A module that is not found is
// left out.
// Throws as wanted_modules().
std::vector<std::filesystem::path> wanted_files(const Options &options);

}  // namespace host
