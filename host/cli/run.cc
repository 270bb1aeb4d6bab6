#include "host/cli/run.h"

#include <algorithm>
#include <ostream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/base/module_faults.h"
#include "host/base/words.h"
#include "host/cli/stay.h"
#include "host/exports/payload_guard.h"
#include "host/exports/serve.h"
#include "host/machine/open_machine.h"
#include "host/modules/host_config.h"
#include "host/modules/trusted_file.h"
#include "host/modules/usage_text.h"
#include "host/report/report_dot.h"
#include "host/report/report_json.h"
#include "host/report/report_table.h"
#include "host/report/report_text.h"
#include "host/space/dump.h"
#include "host/watch/event_player.h"
#include "host/watch/service.h"
#include "host/watch/signals.h"
#include "platform/pci_access.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

// PCI Express functions have 4096 bytes. lspci -xxx saves 256 of them, and Advanced Error Reporting
// is behind these.
void warn_about_short_spaces(const MachineSource &source, const Machine &machine) {
    const auto is_short = [&](const Function *function) {
        return function->port_type &&
               source.image->bytes(function->id()).size() <= pci::CONFIG_SIZE;
    };
    const auto count = std::ranges::count_if(machine.functions(), is_short);
    if (count != 0)
        log_warning(
            source.name + ": " + functions_text(static_cast<std::size_t>(count)) +
            " without extended configuration space, ECRC cannot be set on them; a full dump: "
            "sudo lspci -xxxx > FILE");
}

void require_trust(const std::string &what, const std::filesystem::path &file) {
    if (const auto reason = distrust(file))
        throw InputError(what + file.string() + ": " + *reason);
}

// Those of the configuration, then those of the command line.
std::vector<ModuleEntry> wanted_modules(const Options &options) {
    HostConfig config;
    if (options.config) {
        require_trust("", *options.config);
        config = read_host_config(*options.config);
    }
    for (const std::string &warning : config.warnings)
        log_warning(warning);
    config.modules.insert(config.modules.end(), options.modules.begin(), options.modules.end());
    for (const ModuleEntry &module : config.modules)
        if (const auto place = find_module(module))
            require_trust("module ", *place);
    return config.modules;
}

// With --live --write, on drivers that run. Ports have the kernel's own driver always, which has no
// traffic: the warning would come on every machine.
void warn_about_traffic(const MachineSource &source, const Machine &machine) {
    const auto has_traffic = [&](const Function *function) {
        std::uint32_t command = 0;
        return !function->is_bridge() && !source.live->sysfs().driver(function->id()).empty() &&
               source.live->read(function->id(), pci::COMMAND, 2, command) == PCI_OK &&
               (command & pci::COMMAND_BUS_MASTER) != 0;
    };
    const auto count = std::ranges::count_if(machine.functions(), has_traffic);
    if (count != 0)
        log_warning(functions_text(static_cast<std::size_t>(count)) +
                    " with a driver bound and Bus Master on: no order of writes is safe for a "
                    "payload size under live traffic (hoplar(8): SAFETY)");
}

std::vector<ModuleResult> start_modules(const std::vector<ModuleEntry> &modules) {
    std::vector<ModuleResult> results = load_modules(modules);
    keep_payloads_in_bounds();
    warn_about_payloads_found();
    return results;
}

// What is to be played after start-up. Standard input of a server that stays comes later.
std::vector<BusEvent> wanted_events(const Options &options, std::istream &in,
                                    const EventPlayer &player) {
    if (!options.events || (options.watch && *options.events == STANDARD_INPUT))
        return {};
    const bool is_input = *options.events == STANDARD_INPUT;
    const std::string name = is_input ? "standard input" : *options.events;
    return player.parse(is_input ? read_text_stream(in, name) : read_text_file(name), name,
                        options.source.domain);
}

void make_cold(ConfigImage &image) {
    for (const RoutingId id : image.functions())
        image.reset(id);
}

// False when it could not be written.
bool write_output(std::optional<OutputFile> &output, const MachineSource &source) {
    try {
        if (output)
            source.write_dump_to(*output);
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
    if (options.report == ReportForm::DOT)
        write_dot(out, report);
    if (out.flush())
        return true;
    log_error("standard output: the report cannot be written");
    return false;
}

std::unique_ptr<Service> open_service(const Options &options) {
    if (!options.watch)
        return nullptr;
    auto service = std::make_unique<Service>(options.source.domain);
    if (options.control)
        service->listen(*options.control);
    if (options.events == STANDARD_INPUT)
        service->read_standard_input();
    return service;
}

// Everything is read and checked before anything runs. Kernel events are awaited before the machine
// is read, so that none is missed. What writes to this machine is not ended half way: payload sizes
// that differ along a path lose packets.
int run_machine(const Options &options, std::istream &in, std::ostream &out) {
    const std::vector<ModuleEntry> modules = wanted_modules(options);
    const MachineSource source = open_source(options.source, in);
    std::optional<OutputFile> output;
    if (options.output)
        output.emplace(*options.output);
    const std::unique_ptr<Service> service = open_service(options);
    if (options.cold)
        make_cold(*source.image);
    const std::unique_ptr<Machine> machine = open_machine(source.space());
    const std::unique_ptr<EventPlayer> player = player_for(source, *machine);
    if (source.is_written())
        warn_about_traffic(source, *machine);
    else
        warn_about_short_spaces(source, *machine);
    const std::vector<BusEvent> events = wanted_events(options, in, *player);

    if (source.is_written())
        hold_signals();
    const ExitWatch watch(EXIT_BAD_INPUT);
    const Serving serving(*machine, options.managed);
    Report report = begin_report(*machine, options.source.domain);
    std::vector<ModuleResult> results = start_modules(modules);
    bool all_done = std::ranges::all_of(results, &ModuleResult::runs);
    all_done &= player->play(events).empty();
    if (service)
        all_done &=
            stay(*service, {source, options.source.domain, *machine, *player, results, report});
    all_done &= keep_payloads_in_bounds();
    const bool saved = write_output(output, source);
    all_done &= report_failures(source) && !any_exception();
    end_report(report, *machine, std::move(results));
    const bool reported = write_report(options, report, out);
    if (!saved || !reported)
        return EXIT_BAD_INPUT;
    return all_done ? EXIT_DONE : EXIT_NOT_ALL_DONE;
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

}  // namespace

int refuse(const std::exception &error) {
    const std::string_view text = error.what();
    if (dynamic_cast<const InputError *>(&error) == nullptr)
        log_error(std::string(text));
    else
        for (const std::string_view line : split(text, '\n'))
            log_error(std::string(line));
    return EXIT_BAD_INPUT;
}

int run(const Options &options, std::istream &in, std::ostream &out) {
    open_log(options.verbosity, options.debug);
    return options.usage ? print_usage(*options.usage, out) : run_machine(options, in, out);
}

}  // namespace host
