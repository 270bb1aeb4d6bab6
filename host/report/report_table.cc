#include "host/report/report_table.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <ostream>

#include "host/base/columns.h"
#include "host/report/report_text.h"
#include "host/report/selection.h"
#include "host/report/table_lines.h"

namespace host {
namespace {

constexpr const char *BOLD = "\033[1m";
constexpr const char *PLAIN = "\033[0m";

void write_line(std::ostream &out, const std::string &text, bool bold, TableStyle style) {
    if (bold && style.emphasis)
        out << BOLD << text << PLAIN << '\n';
    else
        out << text << '\n';
}

// Breaks a sentence between words, with the lines behind the first one set in.
void write_sentence(std::ostream &out, const std::string &text, bool bold, TableStyle style) {
    constexpr std::size_t INDENT = 3;
    if (style.width <= INDENT) {
        write_line(out, text, bold, style);
        return;
    }
    std::string lines;
    for (const char c : wrapped(text, style.width - INDENT))
        lines += c == '\n' ? "\n" + std::string(INDENT, ' ') : std::string(1, c);
    write_line(out, lines, bold, style);
}

void write_lines(std::ostream &out, const Report &report, TableStyle style) {
    const TableLines table = table_lines(report, style.width);
    if (table.lines.empty())
        out << "no function is selected\n";
    for (const TableLine &line : table.lines) {
        const std::string text = line_text(table, line);
        if (line.cells[PLACE].empty())
            write_sentence(out, text, false, style);
        else
            write_line(out, style.width == 0 ? text : first_columns(text, style.width),
                       line.row != nullptr && line.row->changed(), style);
    }
    out << '\n';
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
            write_sentence(out, std::string(severity_text(finding.severity)) + ": " + finding.text,
                           finding.severity == Severity::ERROR, style);
    std::string counts;
    for (const Severity severity : {Severity::ERROR, Severity::WARNING, Severity::NOTE})
        counts += counted_text(hidden[static_cast<std::size_t>(severity)], severity_text(severity));
    if (!counts.empty())
        write_sentence(out, "not shown: " + counts.substr(2) + " about other functions", false,
                       style);
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
    write_lines(out, report, style);
    write_findings(out, report, style);
    write_sentence(out, summary_text(report) + messages_text(report), false, style);
}

}  // namespace host
