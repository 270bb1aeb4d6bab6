// The command line of hoplar-check.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "host/space/machine_source.h"

namespace check {

struct Options {
    host::SourceOptions source;                   // of the machine to check against
    bool live = false;                            // it is this one
    std::optional<std::filesystem::path> config;  // whose modules name the feature files
    std::vector<std::string> files;
    bool describe = false;  // what each line selects

    bool has_machine() const { return live || source.dump; }
};

// Returns nullopt when --help or --version has been written to `out`, so that nothing is left to
// do. Throws host::InputError for options that cannot be used.
std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out);

}  // namespace check
