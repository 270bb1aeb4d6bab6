#include "host/report/report_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ostream>

#include "host/base/columns.h"
#include "host/base/safe_text.h"
#include "host/report/report_text.h"
#include "host/report/selection.h"

namespace host {
namespace {

constexpr const char *BOLD = "\033[1m";
constexpr const char *PLAIN = "\033[0m";

enum Column : std::size_t { PLACE, TYPE, PAYLOAD, GEN, CHK, NAME, COLUMNS };

struct Line {
    bool changed = false;
    std::array<std::string, COLUMNS> cells{};
    std::string heading{};  // in place of cells
};

std::string payload_cell(const FunctionReport &row) {
    if (row.gone())
        return gone_text(row);
    if (!row.before.mps || !row.after.mps)
        return NOTHING_TEXT;
    return payload_text(row) + " (" + size_text(row.after.mps->supported) + ")";
}

std::string place_cell(const FunctionReport &row, const std::string &branch) {
    std::string text = branch + row.address;
    if (!row.function.is_bridge())
        return text;
    char buses[16];
    const unsigned secondary = row.function.secondary;
    const unsigned subordinate = row.function.subordinate;
    if (secondary == subordinate)
        std::snprintf(buses, sizeof buses, " [%02x]", secondary);
    else
        std::snprintf(buses, sizeof buses, " [%02x-%02x]", secondary, subordinate);
    return text + buses;
}

std::string name_cell(const FunctionReport &row) {
    const std::string whose = row.physical.empty() ? "" : "(of " + row.physical + ") ";
    return whose + (row.managed ? "" : "(not managed) ") + safe_text(row.name);
}

// Lists the functions depth first, with the branches that lead to each, below the headings of their
// hierarchies.
class Tree {
public:
    explicit Tree(const Report &report)
        : report_(report), below_(report.functions.size() + 1), headings_(report.functions.size()) {
        for (const HierarchyReport &hierarchy : report.hierarchies)
            headings_[hierarchy.root_port] = "-- root port " +
                                             report.functions[hierarchy.root_port].address + ": " +
                                             limit_text(report, hierarchy);
        for (std::size_t i = 0; i < report.functions.size(); ++i)
            if (report.functions[i].shown)
                below_[report.functions[i].bridge.value_or(roots())].push_back(i);
    }

    std::vector<Line> lines() {
        for (const std::size_t root : below_[roots()])
            add(root, "", "");
        return std::move(lines_);
    }

private:
    std::size_t roots() const { return report_.functions.size(); }

    // `branch` leads to the function itself; `trunk` precedes everything below it.
    void add(std::size_t index, const std::string &branch, const std::string &trunk) {
        const FunctionReport &row = report_.functions[index];
        if (!headings_[index].empty())
            lines_.push_back({.heading = headings_[index]});
        lines_.push_back({.changed = row.changed(),
                          .cells = {place_cell(row, branch), type_text(row.function),
                                    payload_cell(row), ecrc_text(row, &EcrcState::gen),
                                    ecrc_text(row, &EcrcState::chk), name_cell(row)}});
        const std::vector<std::size_t> &below = below_[index];
        for (const std::size_t child : below) {
            const bool last = child == below.back();
            add(child, trunk + (last ? "└─" : "├─"), trunk + (last ? "  " : "│ "));
        }
    }

    const Report &report_;
    std::vector<std::vector<std::size_t>> below_;  // by bridge; the last are those on root buses
    std::vector<std::string> headings_;            // by root port
    std::vector<Line> lines_;
};

using Widths = std::array<std::size_t, COLUMNS>;

Widths column_widths(const std::vector<Line> &lines) {
    Widths widths{};
    for (const Line &line : lines)
        for (std::size_t column = 0; column < COLUMNS; ++column)
            widths[column] = std::max(widths[column], display_width(line.cells[column]));
    return widths;
}

std::string line_text(const Line &line, const Widths &widths) {
    if (!line.heading.empty())
        return line.heading;
    std::string text = line.changed ? "* " : "  ";
    for (std::size_t column = 0; column < COLUMNS; ++column) {
        text += line.cells[column];
        if (column != NAME)
            text.append(widths[column] - display_width(line.cells[column]) + 2, ' ');
    }
    return text.erase(text.find_last_not_of(' ') + 1);
}

void write_line(std::ostream &out, const std::string &text, bool changed, TableStyle style) {
    const std::string shown = style.width == 0 ? text : first_columns(text, style.width);
    if (changed && style.emphasis)
        out << BOLD << shown << PLAIN << '\n';
    else
        out << shown << '\n';
}

void write_rows(std::ostream &out, std::vector<Line> lines, TableStyle style) {
    lines.insert(lines.begin(),
                 {.changed = false,
                  .cells = {"FUNCTION", "TYPE", "PAYLOAD", "ECRC GEN", "ECRC CHK", "NAME"}});
    const Widths widths = column_widths(lines);
    for (const Line &line : lines)
        write_line(out, line_text(line, widths), line.changed, style);
}

// The headings of hierarchies tell what limits them.
bool stands_in_heading(const Finding &finding) {
    return finding.code == std::string_view("payload-limited");
}

// Findings about functions that are not shown are counted, so that no error goes unnoticed.
void write_findings(std::ostream &out, const Report &report, TableStyle style) {
    std::array<std::size_t, 3> hidden{};  // by severity
    for (const Finding &finding : report.findings)
        if (stands_in_heading(finding))
            continue;
        else if (!is_shown(report, finding))
            ++hidden[static_cast<std::size_t>(finding.severity)];
        else
            write_line(out, std::string(severity_text(finding.severity)) + ": " + finding.text,
                       finding.severity == Severity::ERROR,
                       {.emphasis = style.emphasis, .width = 0});
    std::string counts;
    for (const Severity severity : {Severity::ERROR, Severity::WARNING, Severity::NOTE})
        counts += counted_text(hidden[static_cast<std::size_t>(severity)], severity_text(severity));
    if (!counts.empty())
        out << "not shown: " << counts.substr(2) << " about other functions\n";
}

bool environment_wants_no_color() {
    const char *const no_color = std::getenv("NO_COLOR");
    return no_color != nullptr && *no_color != '\0';
}

}  // namespace

TableStyle standard_output_style() {
    if (isatty(STDOUT_FILENO) == 0)
        return {};
    winsize size{};
    static_cast<void>(ioctl(STDOUT_FILENO, TIOCGWINSZ, &size));
    return {.emphasis = !environment_wants_no_color(), .width = size.ws_col};
}

void write_table(std::ostream &out, const Report &report, TableStyle style) {
    std::vector<Line> lines = Tree(report).lines();
    if (lines.empty())
        out << "no function is selected\n";
    else
        write_rows(out, std::move(lines), style);
    out << '\n';
    write_findings(out, report, style);
    out << summary_text(report) << messages_text(report) << '\n';
}

}  // namespace host
