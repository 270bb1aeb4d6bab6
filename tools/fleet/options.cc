#include "tools/fleet/options.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <ostream>

#include "host/base/input.h"
#include "host/cli/command_line.h"

namespace fleet {
namespace {

constexpr const char *FOOTER =
    "A report is what \"hoplar --report json\" writes. Of a folder, all files below it\n"
    "whose names end in .json, .jsonl or .ndjson are read; - is standard input.\n"
    "\n"
    "Exit status: 0 all reports were read; 1 some were not; 2 bad options, no report\n"
    "that could be read, or a result that could not be written.\n";

const std::map<std::string, Form> FORMS = {
    {"table", Form::TABLE}, {"json", Form::JSON}, {"csv", Form::CSV}, {"html", Form::HTML}};

}  // namespace

std::optional<Options> parse_options(int argc, const char *const *argv, std::ostream &out) {
    CLI::App app("Adds up the reports of many machines.", "hoplar-fleet");
    Options options;
    std::string form = "table";
    app.add_option("--form", form, "table (default), json, csv or html, a page for a browser")
        ->type_name("FORM");
    app.add_option("REPORT", options.reports, "Files and folders, a report a machine")
        ->type_name("");
    app.footer(FOOTER);
    if (!host::parse_command_line(app, argc, argv, out))
        return std::nullopt;
    const auto found = FORMS.find(form);
    if (found == FORMS.end())
        throw host::InputError("--form: " + host::excerpt(form) +
                               " is none of table, json, csv and html");
    if (options.reports.empty())
        throw host::InputError("no report is named (hoplar-fleet --help)");
    if (std::ranges::find(options.reports, "") != options.reports.end())
        throw host::InputError("REPORT: no file is named");
    options.form = found->second;
    return options;
}

}  // namespace fleet
