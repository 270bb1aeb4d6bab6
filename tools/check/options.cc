#include "tools/check/options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <ostream>

#include "host/base/input.h"
#include "host/cli/command_line.h"
#include "host/cli/options.h"

namespace check {
namespace {

constexpr const char *FOOTER =
    "Each remark is a line FILE:LINE: error|warning|note: TEXT on standard output.\n"
    "\n"
    "Exit status: 0 no errors and no warnings; 1 some; 2 bad options, unreadable\n"
    "input, or remarks that could not be written.\n";

void declare(CLI::App &app, Options &options, std::optional<std::string> &domain) {
    app.add_option("-F,--dump", options.source.dump,
                   "Check against the machine of a dump as of lspci -xxxx, - for standard input")
        ->type_name("FILE");
    app.add_flag("--live", options.live, "Check against this machine, which is only read");
    app.add_option("-c,--config", options.config,
                   "Check the feature files that this configuration of hoplar names")
        ->type_name("FILE");
    app.add_option("--domain", domain, "Domain of the functions, default 0")->type_name("N");
    app.add_flag("-v", options.describe, "Also say what each line asks for");
    app.add_option("FEATURE-FILE", options.files, "Feature files")->type_name("");
    app.footer(FOOTER);
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out) {
    CLI::App app("Says what is wrong with feature files before they are used.", "hoplar-check");
    Options options;
    std::optional<std::string> domain;
    declare(app, options, domain);
    if (!host::parse_command_line(app, argc, argv, out))
        return std::nullopt;
    if (options.files.empty() && !options.config)
        throw host::InputError("no feature file is named (hoplar-check --help)");
    if (std::ranges::find(options.files, "") != options.files.end())
        throw host::InputError("FEATURE-FILE: no file is named");
    if (options.live && options.source.dump)
        throw host::InputError("--dump and --live: one of them");
    host::require_file_name("--dump", options.source.dump);
    host::require_file_name("--config", options.config);
    options.source.domains_are_default = !domain;
    options.source.domains = std::vector{host::parse_domain(domain.value_or("0"))};
    return options;
}

}  // namespace check
