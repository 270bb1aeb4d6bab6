#include "host/report/selection.h"

#include <algorithm>

#include "host/base/input.h"
#include "host/base/log.h"

namespace host {
namespace {

// Functions with a problem, by index.
std::vector<bool> find_problems(const Report &report) {
    std::vector<bool> has_problem;
    for (const FunctionReport &row : report.functions)
        has_problem.push_back(row.is_silent());
    for (const Finding &finding : report.findings)
        if (finding.severity != Severity::NOTE)
            has_problem[finding.function] = true;
    return has_problem;
}

bool is_in_slot(const Report &report, const Selection &selection, std::size_t index) {
    for (std::optional<std::size_t> each = index; each; each = report.functions[*each].bridge)
        for (const SlotFilter &slot : selection.slots)
            if (slot.matches(report.domain, report.functions[*each].function.id()))
                return true;
    return selection.slots.empty();
}

bool is_one(const FunctionReport &row, bool has_problem, Only only) {
    switch (only) {
    case Only::CHANGED:
        return row.changed();
    case Only::PCIE:
        return row.function.port_type || row.function.physical;
    case Only::PROBLEMS:
        break;
    }
    return has_problem;
}

// Bridges above are shown too, because the tree has no place for a function without them.
void show(Report &report, std::size_t index) {
    for (std::optional<std::size_t> each = index; each && !report.functions[*each].shown;
         each = report.functions[*each].bridge)
        report.functions[*each].shown = true;
}

}  // namespace

void select_functions(Report &report, const Selection &selection) {
    if (selection.is_everything())
        return;
    report.narrowed = true;
    const std::vector<bool> has_problem = find_problems(report);
    for (std::size_t i = 0; i < report.functions.size(); ++i) {
        FunctionReport &row = report.functions[i];
        const auto is_wanted = [&](Only only) { return is_one(row, has_problem[i], only); };
        row.shown = false;
        row.selected = is_in_slot(report, selection, i) &&
                       (selection.only.empty() || std::ranges::any_of(selection.only, is_wanted));
    }
    for (std::size_t i = 0; i < report.functions.size(); ++i)
        if (report.functions[i].selected)
            show(report, i);
}

bool is_shown(const Report &report, const Finding &finding) {
    const auto shown = [&](std::size_t index) { return report.functions[index].shown; };
    return shown(finding.function) || std::ranges::any_of(finding.several, shown);
}

}  // namespace host
