// A module as the host's configuration and command line name it: file[,argument...].
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct ModuleEntry {
    std::string file;
    std::vector<std::string> args;
    // Folder of the configuration file that names the module; nullopt on the command line.
    std::optional<std::filesystem::path> beside;
    std::size_t line = 0;  // in that file
};

// Parses an entry; empty arguments are passed over. Throws InputError when no file is named, and
// for an argument that is not safe text.
ModuleEntry parse_module_entry(std::string_view text, std::optional<std::filesystem::path> beside);

// Returns the files that the name may stand for, in the order in which they are tried: the name
// itself when it has a slash; else in lib/hoplar of the tree that the host is installed in, where a
// build puts modules, and beside the configuration file. The working directory is not searched,
// because another user may have put a file of that name there, which root would run.
std::vector<std::filesystem::path> module_places(const ModuleEntry &spec);

// Returns the first of these that exists.
std::optional<std::filesystem::path> find_module(const ModuleEntry &spec);

// Returns "MODULE: not found, tried FILE, FILE", and how to name a file that is in the working
// directory.
std::string not_found(const ModuleEntry &spec);

}  // namespace host
