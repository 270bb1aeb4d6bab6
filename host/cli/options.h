// The command line.
#pragma once

#include <filesystem>
#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "host/base/log.h"
#include "host/exports/serve.h"
#include "host/modules/module_entry.h"
#include "host/report/selection.h"
#include "host/space/machine_source.h"

namespace host {

enum class ReportForm { TABLE, JSON, HTML, DOT, METRICS, NONE };

// Returns true for the forms that have requests, messages and drivers too.
constexpr bool has_all_facts(ReportForm form) {
    return form == ReportForm::JSON || form == ReportForm::HTML;
}

// Decides on hierarchies with traffic whose payload size would change.
enum class Busy { REFUSE, SKIP, WRITE };

struct Options {
    SourceOptions source;
    std::optional<std::filesystem::path> config;
    std::vector<ModuleEntry> modules;
    std::optional<std::string> events;  // a file, or "-": standard input
    std::optional<std::filesystem::path> output;
    std::optional<std::filesystem::path> report_file;  // empty: standard output
    ReportForm report = ReportForm::TABLE;
    Selection selection;   // what the report shows
    int parent = -1;       // with `watch` and `is_part`: the connection to the process above
    bool is_part = false;  // the report and the output are parts of those of several domains
    bool check = false;    // the exit status tells what would change, and what is wrong
    bool strict = false;   // what feature files ask for and is not reached is an error
    bool cold = false;
    Busy busy = Busy::REFUSE;  // with --write
    bool complete = false;
    bool watch = false;
    std::optional<std::filesystem::path> control;  // socket, with `watch`
    ManagedBuses managed = ManagedBuses(256, true);
    LogLevel log;
    bool list_files = false;           // nothing else is done then
    std::optional<ModuleEntry> usage;  // nothing else is done then
};

// Returns nullopt when --help or --version has been written to `out`, so that nothing is left to
// do. Throws InputError for options that cannot be used.
std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out);

// Throws InputError unless one of --dump and --live is given, and --write only with the latter.
void require_source(bool dump, bool live, bool write);

// Parses the value of --domain, hexadecimal. Throws InputError, which names the text.
unsigned parse_domain(const std::string &text);

// Parses the same where it may be a list, "0,2,10000", or "all".
DomainChoice parse_domains(const std::string &text);

// Parses buses as "00-7f,ff", hexadecimal. Throws InputError, which names the text.
ManagedBuses parse_bus_ranges(const std::string &text);

}  // namespace host
