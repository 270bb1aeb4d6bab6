#include "host/cli/run.h"

#include <algorithm>
#include <cstdint>
#include <ostream>
#include <sstream>

#include "host/base/input.h"
#include "host/base/log.h"
#include "host/base/words.h"
#include "host/cli/domains.h"
#include "host/cli/session.h"
#include "host/cli/traffic.h"
#include "host/cli/wanted_files.h"
#include "host/modules/usage_text.h"
#include "host/space/output_file.h"

namespace host {
namespace {

int print_usage(const ModuleEntry &module, std::ostream &out) {
    const auto file = find_module(module);
    if (!file)
        throw InputError("module " + not_found(module));
    if (out << module_usage(*file) << std::flush)
        return EXIT_DONE;
    log_error("standard output: the usage text cannot be written");
    return EXIT_BAD_INPUT;
}

// One path a line: what a configuration names holds no line ends.
int print_files(const Options &options, std::ostream &out) {
    for (const std::filesystem::path &file : wanted_files(options))
        out << file.string() << '\n';
    if (out << std::flush)
        return EXIT_DONE;
    log_error("standard output: the files cannot be written");
    return EXIT_BAD_INPUT;
}

// Returns how much memory the messages may take that a report lists. Those of a start come
// to an end; a server that stays may run for years.
std::size_t bytes_to_keep(const Options &options) {
    constexpr std::size_t OF_A_SERVER = 1 << 20;
    if (!has_all_facts(options.report) && !options.control)
        return 0;
    return options.watch ? OF_A_SERVER : SIZE_MAX;
}

// Warns of filters that no function of any domain matches.
void warn_about_empty_slots(const Selection &selection, const std::vector<MachineSource> &sources) {
    for (const SlotFilter &slot : selection.slots)
        if (std::ranges::none_of(sources, [&](const MachineSource &source) {
                return std::ranges::any_of(source.space().functions(), [&](RoutingId id) {
                    return slot.matches(source.domain, id);
                });
            }))
            log_warning("-s " + excerpt(slot.text) + ": no function of this machine matches");
}

int serve(const Options &options, std::istream &in, std::ostream &out) {
    const HostConfig config = wanted_modules(options);
    std::vector<MachineSource> sources = open_sources(options.source, in);
    warn_about_empty_slots(options.selection, sources);
    const EventText events = read_events(options, in);
    if (sources.size() != 1)
        return run_domains(options, config, std::move(sources), events, out);
    Session session(options, config.modules_of(sources[0].domain), std::move(sources[0]), events);
    session.start();
    session.stay();
    return session.finish(out);
}

// Finds out whether the report can be written before anything runs. A run without a report leaves
// the one of the run before.
int serve_with_report_file(const Options &options, std::istream &in) {
    OutputFile file(*options.report_file);
    if (options.output && OutputFile(*options.output).replaces_same_file_as(file))
        throw InputError("--output and --report-file: both are " + options.output->string());
    std::ostringstream report;
    const int status = serve(options, in, report);
    if (!report.view().empty())
        file.write([&](const Sink &sink) { sink(report.view()); });
    return status;
}

}  // namespace

int refuse(const std::exception &error) {
    const std::string_view text = error.what();
    if (dynamic_cast<const InputError *>(&error) == nullptr)
        log_error(std::string(text));
    else
        for (const std::string_view line : split(text, '\n'))
            log_error(std::string(line));
    return dynamic_cast<const TrafficError *>(&error) ? EXIT_NOT_ALL_DONE : EXIT_BAD_INPUT;
}

int run(const Options &options, std::istream &in, std::ostream &out) {
    open_log(options.log);
    keep_messages(bytes_to_keep(options));
    if (options.list_files)
        return print_files(options, out);
    if (options.usage)
        return print_usage(*options.usage, out);
    return options.report_file ? serve_with_report_file(options, in) : serve(options, in, out);
}

}  // namespace host
