// The command line of hoplar-fleet.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace fleet {

enum class Form { TABLE, JSON, CSV, HTML };

struct Options {
    std::vector<std::string> reports;  // files and folders; "-": standard input
    Form form = Form::TABLE;
};

// Returns nullopt when --help or --version has been written to `out`, so that nothing is left to
// do. Throws host::InputError for options that cannot be used.
std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out);

}  // namespace fleet
