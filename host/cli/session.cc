#include "host/cli/session.h"

#include <unistd.h>

#include <algorithm>
#include <ostream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/base/words.h"
#include "host/cli/run.h"
#include "host/cli/start_up.h"
#include "host/cli/stay.h"
#include "host/cli/strict.h"
#include "host/cli/wanted_files.h"
#include "host/exports/payload_guard.h"
#include "host/machine/open_machine.h"
#include "host/report/report_dot.h"
#include "host/report/report_html.h"
#include "host/report/report_json.h"
#include "host/report/report_metrics.h"
#include "host/report/report_table.h"
#include "host/report/report_text.h"
#include "host/report/selection.h"
#include "host/requests/named_buses.h"
#include "host/space/dump.h"
#include "host/watch/signals.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

// PCI Express functions have 4096 bytes of configuration space, but lspci -xxx saves only 256 of
// them, without Advanced Error Reporting.
void warn_about_short_spaces(const MachineSource &source, const Machine &machine) {
    const auto is_short = [&](const Function *function) {
        return function->port_type &&
               source.image->bytes(function->id()).size() <= pci::CONFIG_SIZE;
    };
    const auto count = std::ranges::count_if(machine.functions(), is_short);
    if (count != 0)
        log_warning(source.name + ": " + functions_text(static_cast<std::size_t>(count)) +
                    " without extended configuration space, ECRC cannot be set there; a full dump: "
                    "sudo lspci -xxxx > FILE");
}

// Opens the machine as it is, or with --cold in reset state, and logs as warnings what users should
// know before anything runs.
std::unique_ptr<Machine> wanted_machine(const Options &options, const MachineSource &source) {
    if (options.cold)
        for (const RoutingId id : source.image->functions())
            source.image->reset(id);
    std::unique_ptr<Machine> machine = open_machine(source.space());
    if (!source.is_written())
        warn_about_short_spaces(source, *machine);
    return machine;
}

std::unique_ptr<Service> open_service(const Options &options, unsigned domain) {
    if (!options.watch)
        return nullptr;
    auto service = std::make_unique<Service>(domain);
    if (options.parent >= 0)
        service->read_relayed(Descriptor(dup(options.parent)));
    else if (options.control)
        service->listen(*options.control);
    if (options.parent < 0 && options.events == STANDARD_INPUT)
        service->read_standard_input();
    return service;
}

std::optional<OutputFile> wanted_output(const Options &options) {
    return options.output ? std::optional<OutputFile>(std::in_place, *options.output)
                          : std::nullopt;
}

}  // namespace

// A server that stays reads standard input later.
EventText read_events(const Options &options, std::istream &in) {
    if (!options.events || (options.watch && *options.events == STANDARD_INPUT))
        return {};
    const bool is_input = *options.events == STANDARD_INPUT;
    const std::string name = is_input ? "standard input" : *options.events;
    return {name, is_input ? read_text_stream(in, name) : read_text_file(name)};
}

// The service is opened before the machine is read, so that no kernel event is missed.
Session::Session(const Options &options, std::vector<ModuleEntry> modules, MachineSource source,
                 const EventText &events)
    : options_(options), modules_(std::move(modules)), source_(std::move(source)),
      output_(wanted_output(options)), service_(open_service(options, source_.domain)),
      machine_(wanted_machine(options, source_)), player_(player_for(source_, *machine_)),
      events_(player_->parse(events.text, events.name, source_.domain)),
      left_alone_(leave_busy_alone(options, modules_, source_, *machine_)),
      exit_watch_(EXIT_BAD_INPUT),
      serving_(*machine_, managed_buses(options, left_alone_, *machine_), options.complete),
      report_(begin_report(*machine_, source_.domain)) {
    report_.left_alone = left_alone_;
}

// Signals are blocked while this machine is written to, because a run that ends half way leaves
// payload sizes that differ along a path, which loses packets.
void Session::start() {
    if (source_.is_written())
        block_signals();
    feature_files_ = open_feature_files(modules_);
    demote_warnings([named = named_buses(feature_files_)](std::string_view warning) {
        return is_no_loss(warning, named);
    });
    report_.feature_files = checksums_of(feature_files_);
    results_ = start_up(modules_);
    all_done_ = std::ranges::all_of(results_, &ModuleResult::runs);
    all_done_ &= player_->play(events_).empty();
}

// A server that stays tells at once what start-up has not reached: its end may be long after.
void Session::stay() {
    if (!service_)
        return;
    all_done_ &= reaches_requests();
    all_done_ &= host::stay(*service_, {source_, source_.domain, *machine_, *player_, results_,
                                        report_, feature_files_});
}

int Session::finish(std::ostream &out) {
    if (service_)
        machine_->space().look_again();
    all_done_ &= keep_payloads_in_bounds();
    const bool saved = save();
    all_done_ &= report_failures(source_) && !any_exception();
    all_done_ &= service_ != nullptr || reaches_requests();
    end_report(report_, *machine_, std::move(results_));
    if (has_all_facts(options_.report) || options_.report == ReportForm::METRICS)
        report_.requests = judge(feature_files_, {*machine_, report_});
    if (source_.live && has_all_facts(options_.report))
        read_drivers(report_, source_.live->sysfs());
    if (source_.live)
        report_.accesses = source_.live->accesses();
    select_functions(report_, options_.selection);
    const bool reported = write_report(out);
    if (!saved || !reported)
        return EXIT_BAD_INPUT;
    if (!all_done_)
        return EXIT_NOT_ALL_DONE;
    return options_.check ? check() : EXIT_DONE;
}

// The errors come before the report, which lists all messages.
bool Session::reaches_requests() {
    if (!options_.strict)
        return true;
    return report_faults(requests(), options_.is_part);
}

std::vector<RequestReport> Session::requests() {
    read_states(report_, *machine_);
    return judge(feature_files_, {*machine_, report_});
}

int Session::check() const {
    if (std::ranges::any_of(report_.functions, &FunctionReport::changed))
        return EXIT_WOULD_CHANGE;
    const bool is_wrong = std::ranges::count(report_.findings, Severity::ERROR, &Finding::severity);
    return is_wrong ? EXIT_FINDING : EXIT_DONE;
}

// Returns false when the dump cannot be written.
bool Session::save() {
    try {
        if (output_)
            source_.write_dump_to(*output_);
        return true;
    } catch (const DumpError &error) {
        log_error(error.what());
        return false;
    }
}

bool Session::write_report(std::ostream &out) const {
    if (options_.report == ReportForm::TABLE)
        write_table(out, report_, options_.report_file ? TableStyle{} : standard_output_style());
    const bool is_page_part = options_.report == ReportForm::HTML && options_.is_part;
    if (options_.report == ReportForm::JSON || is_page_part)
        write_json(out, report_);
    if (options_.report == ReportForm::DOT && options_.is_part)
        write_dot_part(out, report_);
    if (options_.report == ReportForm::DOT && !options_.is_part)
        write_dot(out, report_);
    if (options_.report == ReportForm::METRICS)
        write_metrics(out, report_);
    if (options_.report == ReportForm::HTML && !is_page_part)
        write_html(out, report_);
    if (out.flush())
        return true;
    log_error("standard output: the report cannot be written");
    return false;
}

}  // namespace host
