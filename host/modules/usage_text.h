// Reads the usage text that a module's file carries in a section that is never loaded.
#pragma once

#include <filesystem>
#include <string>

namespace host {

// Returns the text of section "Zantor_usage", with the file's name (without directory and ".so")
// for every "%C", ending in a line end. Throws InputError when the file cannot be read, is no ELF
// file or has no such section.
std::string module_usage(const std::filesystem::path &file);

}  // namespace host
