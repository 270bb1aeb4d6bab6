// Reads a command line in the way that all programs share.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>

namespace CLI {
class App;
}

namespace host {

// Adds --help and --version to the options that `app` has, fits their descriptions into 80 columns,
// and reads the command line. Returns false when there is nothing left to do: --help or --version
// has been written to `out`. Throws InputError for options that are wrong.
bool parse_command_line(CLI::App &app, int argc, const char *const *argv, std::ostream &out);

// Throw InputError for an option with an empty name, about which no later message could name the
// file; and for an output with the name "-", because it would not be standard output.
void require_file_name(const char *option, const std::optional<std::filesystem::path> &file);
void require_output_name(const char *option, const std::optional<std::filesystem::path> &file);

}  // namespace host
