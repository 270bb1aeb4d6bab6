#include "host/cli/options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <ostream>
#include <set>

#include "host/base/input.h"
#include "host/base/words.h"
#include "host/cli/command_line.h"

namespace host {
namespace {

constexpr const char *FOOTER =
    "Functions are written as lspci writes them (04:00.0), buses and domains in\n"
    "hexadecimal. A dump of this machine: sudo lspci -xxxx > FILE\n"
    "\n"
    "Events, one a line:\n"
    "  insert BDF [VALUE [STATUS]]  functions below the bridge BDF come (back) in\n"
    "                               reset state\n"
    "  remove BDF [VALUE [STATUS]]  functions below the bridge BDF vanish\n"
    "  flr BDF [STATUS]             function-level reset, not of bridges and ports\n"
    "  bus-reset BDF [STATUS]       reset of all below the bridge above BDF\n"
    "\n"
    "Exit status: 0 done; 1 a module could not be loaded, refused to start, was\n"
    "listed twice or threw, a payload size above the port's could not be lowered,\n"
    "with --strict also when a line of a feature file is not reached as a whole,\n"
    "with --watch also when no module is listed, with --write also when --busy\n"
    "refused, an access failed, or an event that was not answered on the control\n"
    "socket; 2 bad options or unreadable input, or a result that could not be\n"
    "written; with --check 3 something would change, 4 nothing would and a finding\n"
    "is an error.\n";

// The options as they are written, before their values are parsed.
struct RawOptions {
    std::optional<std::string> dump, config, events, output, usage, control, report_file;
    bool live = false;
    std::vector<std::string> modules, slots, only;
    std::string report = "table";
    std::optional<std::string> domain, managed, busy;
    int louder = 0;
    bool quiet = false;
    bool debug = false;
};

// Adds an option that may repeat, with one value each time.
CLI::Option *add_list(CLI::App &app, const char *name, std::vector<std::string> &values,
                      const char *description) {
    return app.add_option(name, values, description)
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->allow_extra_args(false);
}

void declare_inputs(CLI::App &app, RawOptions &raw, Options &options) {
    app.add_option("-F,--dump", raw.dump,
                   "Configuration space, a dump as of lspci -xxxx, - for standard input")
        ->type_name("FILE");
    app.add_flag("--live", raw.live, "This machine, as it is; nothing is written without --write");
    app.add_flag("--write", options.source.write, "With --live: write to this machine");
    app.add_flag("--watch", options.watch,
                 "With --write: stay, and follow what comes and goes, until SIGTERM");
    app.add_option("--control", raw.control,
                   "With --watch: socket that takes flr, bus-reset, status, report, help")
        ->type_name("PATH");
    app.add_option("-c,--config", raw.config, "Host configuration file")->type_name("FILE");
    add_list(app, "-m,--module", raw.modules, "One more module; may repeat")
        ->type_name("FILE[,ARG...]");
    app.add_option("-e,--events", raw.events, "Events to play after start-up, - for standard input")
        ->type_name("FILE");
}

void declare_results(CLI::App &app, RawOptions &raw) {
    app.add_option("-o,--output", raw.output, "Write the resulting configuration space as a dump")
        ->type_name("FILE");
    app.add_option("--report", raw.report,
                   "What is reported: table, json, html (a page for a browser), dot (a graph for "
                   "Graphviz), metrics (for Prometheus) or none")
        ->type_name("FORM");
    app.add_option("--report-file", raw.report_file,
                   "Where the report goes, default standard output; replaced when it is complete")
        ->type_name("FILE");
    add_list(
        app, "--only", raw.only,
        "Report only functions that are changed or pcie, or have problems: one of these words, "
        "or several with commas; may repeat")
        ->type_name("WHAT");
    add_list(app, "-s", raw.slots,
             "Report only these functions and all below them, "
             "[[[[domain]:]bus]:][device][.[function]] as lspci; may repeat")
        ->type_name("SLOT");
}

void declare_settings(CLI::App &app, RawOptions &raw, Options &options) {
    app.add_option("--busy", raw.busy,
                   "With --write, where a payload size would change under a driver at work: refuse "
                   "to write anything (default), skip the hierarchy, or write")
        ->type_name("WHAT");
    app.add_flag("--check", options.check,
                 "The exit status tells whether anything would change; nothing is written");
    app.add_flag("--strict", options.strict,
                 "Each line of a feature file that is not reached as a whole is an error");
    app.add_flag("--complete", options.complete,
                 "Set bridges that modules pass over to their hierarchy's payload size");
    app.add_flag("--cold", options.cold, "Every function starts in reset state, as after power-on");
    app.add_option("--domain", raw.domain,
                   "Domains that are served, as 0,2,10000; default all, with --write 0")
        ->type_name("LIST");
    app.add_option("--manage", raw.managed, "Buses that are managed, as 00-7f,ff; default all")
        ->type_name("RANGES");
    app.add_flag("-v", raw.louder, "Messages about what is done too; more when repeated");
    app.add_flag("-q", raw.quiet, "Only errors, no warnings");
    app.add_flag("-d", raw.debug, "Debug messages too");
}

// The help lists the options in the order of these calls.
void declare(CLI::App &app, RawOptions &raw, Options &options) {
    declare_inputs(app, raw, options);
    declare_results(app, raw);
    declare_settings(app, raw, options);
    app.add_flag("--list-files", options.list_files,
                 "Print which files -c and -m make it read, and do nothing else");
    app.add_option("--usage", raw.usage, "Print the module's usage text")->type_name("MODULE");
    app.footer(FOOTER);
}

ModuleEntry command_line_module(const std::string &text) {
    try {
        return parse_module_entry(text, std::nullopt);
    } catch (const InputError &error) {
        throw InputError("\"" + excerpt(text) + "\": " + error.what());
    }
}

template <typename Value>
struct Word {
    const char *word;
    Value value;
};

constexpr std::array<Word<ReportForm>, 6> REPORT_FORMS{{{"table", ReportForm::TABLE},
                                                        {"json", ReportForm::JSON},
                                                        {"html", ReportForm::HTML},
                                                        {"dot", ReportForm::DOT},
                                                        {"metrics", ReportForm::METRICS},
                                                        {"none", ReportForm::NONE}}};

constexpr std::array<Word<Only>, 3> ONLY_WORDS{
    {{"changed", Only::CHANGED}, {"pcie", Only::PCIE}, {"problems", Only::PROBLEMS}}};

constexpr std::array<Word<Busy>, 3> BUSY_WORDS{
    {{"refuse", Busy::REFUSE}, {"skip", Busy::SKIP}, {"write", Busy::WRITE}}};

// Throws InputError, which lists the words.
template <typename Words>
auto parse_word(const char *option, const std::string &text, const Words &words) {
    const auto found = std::ranges::find(words, std::string_view(text), &Words::value_type::word);
    if (found != words.end())
        return found->value;
    std::vector<std::string> known;
    for (const auto &word : words)
        known.push_back(word.word);
    throw InputError(std::string(option) + ": \"" + excerpt(text) + "\" is none of " +
                     join(known, ", "));
}

void require_file_names(const RawOptions &raw) {
    require_file_name("--dump", raw.dump);
    require_file_name("--config", raw.config);
    require_file_name("--events", raw.events);
    require_file_name("--control", raw.control);
    require_output_name("--output", raw.output);
    require_output_name("--report-file", raw.report_file);
}

void require(bool met, const char *complaint) {
    if (!met)
        throw InputError(complaint);
}

void require_matching_options(const RawOptions &raw, const Options &options) {
    require_source(raw.dump.has_value(), raw.live, options.source.write);
    require(raw.dump != STANDARD_INPUT || raw.events != STANDARD_INPUT,
            "--dump - and --events -: standard input can be one of them only");
    require(!options.source.write || !options.check, "--check: not with --write");
    require(options.source.write || !raw.busy, "--busy: only with --live --write");
    require(options.source.write || !options.watch, "--watch: only with --live --write");
    require(options.watch || !raw.control, "--control: only with --watch");
    require(!options.source.write || !options.cold,
            "--cold: not with --write, which takes this machine as it is");
    require(options.report != ReportForm::NONE || !raw.report_file,
            "--report-file: not with --report none");
    require(options.report != ReportForm::METRICS || (raw.only.empty() && raw.slots.empty()),
            "--report metrics: without --only and -s, because it counts the whole machine");
}

// Parses the values.
void interpret(const RawOptions &raw, Options &options) {
    if (raw.usage) {
        options.usage = command_line_module(*raw.usage);
        return;
    }
    options.report = parse_word("--report", raw.report, REPORT_FORMS);
    if (!options.list_files)
        require_matching_options(raw, options);
    require_file_names(raw);
    options.source.dump = raw.dump;
    options.control = raw.control;
    options.config = raw.config;
    options.events = raw.events;
    options.output = raw.output;
    options.report_file = raw.report_file;
    for (const std::string &list : raw.only)
        for (const std::string_view word : split(list, ','))
            options.selection.only.push_back(parse_word("--only", std::string(word), ONLY_WORDS));
    for (const std::string &slot : raw.slots)
        options.selection.slots.push_back(parse_slot_filter(slot));
    if (raw.busy)
        options.busy = parse_word("--busy", *raw.busy, BUSY_WORDS);
    for (const std::string &module : raw.modules)
        options.modules.push_back(command_line_module(module));
    options.source.domains_are_default = !raw.domain;
    options.source.domains = parse_domains(raw.domain.value_or(options.source.write ? "0" : "all"));
    if (raw.managed)
        options.managed = parse_bus_ranges(*raw.managed);
    options.log = log_level(raw.quiet, raw.louder, raw.debug);
}

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out) {
    CLI::App app("Loads server modules on the configuration space of a machine.", "hoplar");
    RawOptions raw;
    Options options;
    declare(app, raw, options);
    if (!parse_command_line(app, argc, argv, out))
        return std::nullopt;
    interpret(raw, options);
    return options;
}

void require_source(bool dump, bool live, bool write) {
    require(dump || live, "no configuration space is given: use -F FILE with a dump of a machine "
                          "(sudo lspci -xxxx > FILE), or --live for this machine");
    require(!dump || !live, "--dump and --live: one of them");
    require(live || !write, "--write: only with --live");
}

unsigned parse_domain(const std::string &text) {
    const auto domain = parse_hex(text);
    if (!domain)
        throw InputError("--domain: \"" + excerpt(text) + "\" is no hexadecimal number");
    return *domain;
}

DomainChoice parse_domains(const std::string &text) {
    if (text == "all")
        return std::nullopt;
    std::set<unsigned> domains;
    for (const std::string_view domain : split(text, ','))
        domains.insert(parse_domain(std::string(domain)));
    return std::vector(domains.begin(), domains.end());
}

ManagedBuses parse_bus_ranges(const std::string &text) {
    ManagedBuses managed(256, false);
    for (const std::string_view range : split(text, ',')) {
        const std::size_t dash = std::min(range.find('-'), range.size());
        const auto first = parse_hex(range.substr(0, dash));
        const auto last = dash == range.size() ? first : parse_hex(range.substr(dash + 1));
        if (!first || !last || *first > *last || *last >= managed.size())
            throw InputError("--manage: \"" + excerpt(text) + "\": \"" + excerpt(range) +
                             "\" is no range of buses (hexadecimal, as in 00-7f,ff)");
        for (std::uint32_t bus = *first; bus <= *last; ++bus)
            managed[bus] = true;
    }
    return managed;
}

}  // namespace host
