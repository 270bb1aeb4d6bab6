// The command line of hoplar-check.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace check {

struct Options {
    std::optional<std::filesystem::path> dump;    // or "-"; nullopt: no machine to check against
    std::optional<std::filesystem::path> config;  // whose modules name the feature files
    std::vector<std::string> files;
    unsigned domain = 0;
    bool describe = false;  // what each line selects
};

// Returns nullopt when --help or --version has been written to `out`, so that nothing is left to
// do. Throws host::InputError for options that cannot be used.
std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out);

}  // namespace check
