// Reads a command line in the way that all programs share.
#pragma once

#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace host {

// Adds --help and --version to the options that `app` has, fits their descriptions into 80 columns,
// and reads the command line. Returns false when there is nothing left to do: --help or --version
// has been written to `out`. Throws InputError for options that are wrong.
bool parse_command_line(CLI::App &app, int argc, const char *const *argv, std::ostream &out);

}  // namespace host
