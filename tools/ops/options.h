// The command line of hoplar-ops.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "host/base/log.h"
#include "host/space/machine_source.h"

namespace ops {

struct Options {
    host::SourceOptions source;
    std::optional<std::filesystem::path> output;
    host::LogLevel log;
    bool force = false;                  // also where a driver would be disturbed
    std::vector<std::string> operation;  // its words: "aspm", "enable", "all"
};

// Returns nullopt when --help or --version has been written to `out`, so that nothing is left to
// do. Throws host::InputError for options that cannot be used.
std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out);

}  // namespace ops
