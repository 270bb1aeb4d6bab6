#include "host/cli/command_line.h"

#include <CLI/CLI.hpp>

#include <ostream>

#include "host/base/columns.h"
#include "host/base/input.h"
#include "host/modules/module_loader.h"

namespace host {
namespace {

// CLI11 leaves this of 80 columns.
constexpr std::size_t DESCRIPTION_WIDTH = 50;

void wrap_descriptions(CLI::App &app) {
    for (CLI::Option *option : app.get_options())
        option->description(wrapped(option->get_description(), DESCRIPTION_WIDTH));
    for (CLI::App *group : app.get_subcommands([](CLI::App *) { return true; }))
        wrap_descriptions(*group);
}

}  // namespace

bool parse_command_line(CLI::App &app, int argc, const char *const *argv, std::ostream &out) {
    app.set_help_flag("-h,--help", "Print this help");
    app.set_version_flag("--version", app.get_name() + " " + version_text(SERVER_VERSION),
                         "Print the version");
    wrap_descriptions(app);
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::CallForHelp &) {
        out << app.help();
    } catch (const CLI::CallForVersion &version) {
        out << version.what() << '\n';
    } catch (const CLI::ParseError &error) {
        throw InputError(excerpt(error.what()) + " (" + app.get_name() +
                         " --help lists the options)");
    }
    return false;
}

void require_file_name(const char *option, const std::optional<std::filesystem::path> &file) {
    if (file && file->empty())
        throw InputError(std::string(option) + ": no file is named");
}

void require_output_name(const char *option, const std::optional<std::filesystem::path> &file) {
    require_file_name(option, file);
    if (file == "-")
        throw InputError(std::string(option) +
                         ": write /dev/stdout for standard output, or ./- for a file \"-\"");
}

}  // namespace host
