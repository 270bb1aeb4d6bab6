#include "host/cli/run.h"

#include <algorithm>
#include <ostream>

#include "host/cli/bus_events.h"
#include "host/cli/event_player.h"
#include "host/cli/host_config.h"
#include "host/cli/open_machine.h"
#include "host/cli/report_json.h"
#include "host/cli/report_table.h"
#include "host/cli/text.h"
#include "host/cli/usage_text.h"
#include "host/machine/dump.h"
#include "host/machine/registers.h"
#include "host/server/log.h"

namespace host {
namespace {

// PCI Express functions have 4096 bytes. lspci -xxx saves 256 of them, and Advanced Error Reporting
// is behind these.
void warn_about_short_spaces(const Options &options, const Machine &machine,
                             const ConfigImage &image) {
    const auto is_short = [&](const Function *function) {
        return function->port_type && image.bytes(function->id()).size() <= reg::CONFIG_SIZE;
    };
    const auto count = std::ranges::count_if(machine.functions(), is_short);
    if (count != 0)
        log_warning(
            options.dump.string() + ": " + functions_text(static_cast<std::size_t>(count)) +
            " without extended configuration space, ECRC cannot be set on them; a full dump: "
            "sudo lspci -xxxx > FILE");
}

// Those of the configuration, then those of the command line.
std::vector<ModuleEntry> wanted_modules(const Options &options) {
    HostConfig config;
    if (options.config)
        config = read_host_config(*options.config);
    for (const std::string &warning : config.warnings)
        log_warning(warning);
    config.modules.insert(config.modules.end(), options.modules.begin(), options.modules.end());
    return config.modules;
}

std::vector<BusEvent> wanted_events(const Options &options, std::istream &in, Machine &machine) {
    if (!options.events)
        return {};
    if (*options.events == "-")
        return parse_bus_events(read_text_stream(in, "standard input"), "standard input", machine,
                                options.domain);
    return parse_bus_events(read_text_file(*options.events), *options.events, machine,
                            options.domain);
}

void make_cold(ConfigImage &image) {
    for (const RoutingId id : image.functions())
        image.reset(id);
}

// False when it could not be written.
bool write_output(const Options &options, const ConfigImage &image) {
    try {
        if (options.output)
            write_dump(*options.output, image);
        return true;
    } catch (const DumpError &error) {
        log_error(error.what());
        return false;
    }
}

bool write_report(const Options &options, const Report &report, std::ostream &out) {
    if (options.report == ReportForm::TABLE)
        write_table(out, report, standard_output_style());
    if (options.report == ReportForm::JSON)
        write_json(out, report);
    if (out.flush())
        return true;
    log_error("standard output: the report cannot be written");
    return false;
}

int run_machine(const Options &options, std::istream &in, std::ostream &out) {
    const Dump dump = open_dump(options.dump, options.domain);
    const std::vector<ModuleEntry> modules = wanted_modules(options);
    if (options.cold)
        make_cold(*dump.image);
    const std::unique_ptr<Machine> machine = open_machine(*dump.image);
    warn_about_short_spaces(options, *machine, *dump.image);
    const std::vector<BusEvent> events = wanted_events(options, in, *machine);

    const Serving serving(*machine, options.managed);
    Report report = begin_report(*machine, options.domain);
    std::vector<ModuleResult> results = load_modules(modules);
    const bool all_run = std::ranges::all_of(results, &ModuleResult::runs);
    play_events(events, *machine, *dump.image);
    const bool saved = write_output(options, *dump.image);
    end_report(report, *machine, std::move(results));
    const bool reported = write_report(options, report, out);
    if (!saved || !reported)
        return EXIT_BAD_INPUT;
    return all_run ? EXIT_DONE : EXIT_MODULE_FAILED;
}

int print_usage(const ModuleEntry &module, std::ostream &out) {
    const auto file = find_module(module);
    if (!file)
        throw InputError("module " + not_found(module));
    if (out << module_usage(*file) << std::flush)
        return EXIT_DONE;
    log_error("standard output: the usage text cannot be written");
    return EXIT_BAD_INPUT;
}

int refuse(const InputError &error) {
    for (const std::string_view line : split(error.what(), '\n'))
        log_error(std::string(line));
    return EXIT_BAD_INPUT;
}

}  // namespace

int run(const Options &options, std::istream &in, std::ostream &out) {
    open_log(options.verbosity, options.debug);
    try {
        if (options.usage)
            return print_usage(*options.usage, out);
        return run_machine(options, in, out);
    } catch (const InputError &error) {
        return refuse(error);
    } catch (const DumpError &error) {
        log_error(error.what());
        return EXIT_BAD_INPUT;
    }
}

}  // namespace host
