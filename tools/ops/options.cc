#include "tools/ops/options.h"

#include <CLI/CLI.hpp>

#include <ostream>

#include "host/base/input.h"
#include "host/cli/command_line.h"
#include "host/cli/options.h"
#include "tools/ops/operations.h"

namespace ops {
namespace {

constexpr const char *FOOTER =
    "\n"
    "Functions are written as lspci writes them (04:00.0). A bus or link is named by\n"
    "the bridge above it, or by a function on it.\n"
    "\n"
    "Exit status: 0 done; 1 the operation failed, or an access to live hardware;\n"
    "2 bad options, unreadable input, a driver that would be disturbed, or a result\n"
    "that could not be written.\n";

void declare(CLI::App &app, Options &options, std::optional<std::string> &domain, bool &live,
             int &louder, bool &quiet, bool &debug) {
    app.add_option("-F,--dump", options.source.dump,
                   "Configuration space, a dump as of lspci -xxxx, - for standard input")
        ->type_name("FILE");
    app.add_flag("--live", live, "This machine; nothing is written without --write");
    app.add_flag("--write", options.source.write, "With --live: write to this machine");
    app.add_flag("--force", options.force, "msi round-trip also where a driver is bound");
    app.add_option("-o,--output", options.output,
                   "Write the resulting configuration space as a dump")
        ->type_name("FILE");
    app.add_option("--domain", domain, "Domain of the functions, default 0")->type_name("N");
    app.add_flag("-v", louder, "Messages about what is done too; more when repeated");
    app.add_flag("-q", quiet, "Only errors, no warnings");
    app.add_flag("-d", debug, "Debug messages too");
    app.add_option("operation", options.operation, "What to do, see below")->type_name("");
    app.footer(operations_help() + FOOTER);
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out) {
    CLI::App app("Runs one operation of the module on the configuration space of a machine.",
                 "hoplar-ops");
    Options options;
    std::optional<std::string> domain;
    bool live = false;
    int louder = 0;
    bool quiet = false;
    bool debug = false;
    declare(app, options, domain, live, louder, quiet, debug);
    if (!host::parse_command_line(app, argc, argv, out))
        return std::nullopt;
    host::require_source(options.source.dump.has_value(), live, options.source.write);
    host::require_file_name("--dump", options.source.dump);
    host::require_output_name("--output", options.output);
    options.source.domains_are_default = !domain;
    options.source.domains = std::vector{host::parse_domain(domain.value_or("0"))};
    options.log = host::log_level(quiet, louder, debug);
    return options;
}

}  // namespace ops
