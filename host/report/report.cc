#include "host/report/report.h"

#include <algorithm>
#include <set>
#include <span>
#include <utility>

#include "host/base/address.h"
#include "host/base/words.h"
#include "host/exports/serve.h"

namespace host {
namespace {

// The index of each function in the report, by routing ID.
using Positions = std::vector<std::size_t>;

Positions positions_of(std::span<const Function *const> functions) {
    Positions positions(ROUTING_IDS);
    for (std::size_t i = 0; i < functions.size(); ++i)
        positions[functions[i]->id()] = i;
    return positions;
}

std::optional<std::size_t> bridge_above(Machine &machine, const Function &function,
                                        const Positions &positions) {
    const bridge_rec *const above = machine.bridges().above(function.bdf);
    if (above == nullptr || above->bridge_kind == BRIDGE_KIND_HOST)
        return std::nullopt;
    return positions[above->bdf & BDF_ROUTING_ID];
}

// Returns the row of this same function; null when there is none.
const FunctionReport *row_of(const std::vector<FunctionReport> &rows, const Function &function) {
    const auto id = [](const FunctionReport &row) { return row.function.id(); };
    const auto found = std::ranges::lower_bound(rows, function.id(), {}, id);
    return found != rows.end() && found->function == function ? &*found : nullptr;
}

// Returns the text behind the address, which is the first word.
std::string name_in_title(const std::string &title) {
    return std::string(
        trim(std::string_view(title).substr(std::min(title.find(' '), title.size()))));
}

}  // namespace

Report begin_report(Machine &machine, unsigned domain) {
    Report report;
    report.domain = domain;
    refresh_report(report, machine, domain);
    return report;
}

void refresh_report(Report &report, Machine &machine, unsigned domain,
                    std::span<const RoutingId> come) {
    const std::vector<const Function *> functions = machine.functions();
    const Positions positions = positions_of(functions);
    const std::vector<FunctionReport> old = std::exchange(report.functions, {});
    for (const Function *function : functions) {
        FunctionReport &row = report.functions.emplace_back(FunctionReport{
            .function = *function,
            .address = format_address(domain, function->id()),
            .name = {},
            .physical = function->physical ? format_address(domain, *function->physical) : "",
            .bridge = bridge_above(machine, *function, positions),
            .managed = manages(pci::bus_of(function->bdf)),
            .before = {},
            .after = {}});
        const FunctionReport *const same = row_of(old, *function);
        const bool is_new = !same || std::ranges::find(come, function->id()) != come.end();
        row.after = is_new ? read_feature_state(machine, *function) : same->after;
        row.before = same ? same->before : row.after;
        row.name = same ? same->name : name_in_title(machine.space().title(function->id()));
    }
    report.hierarchies = find_hierarchies(report.functions, machine);
}

void read_states(Report &report, const Machine &machine) {
    const std::set<RoutingId> completable = completable_bridges();
    for (FunctionReport &row : report.functions) {
        row.completable = completable.contains(row.function.id());
        row.after = read_feature_state(machine, row.function);
        row.removed = row.gone() && !machine.reachable(row.function);
        row.completed = row.after.mps && row.after.mps->current &&
                        is_completed(row.function, *row.after.mps->current);
    }
}

ChangeCounts count_changes(const Report &report, const Machine &machine,
                           std::span<const RoutingId> ids) {
    ChangeCounts counts;
    for (const FunctionReport &row : report.functions) {
        if (std::ranges::find(ids, row.function.id()) == ids.end())
            continue;
        const FeatureState now = read_feature_state(machine, row.function);
        if (!now.reachable)
            continue;
        counts.ecrc += now.ecrc != row.after.ecrc;
        counts.mps += now.mps != row.after.mps;
    }
    return counts;
}

void end_report(Report &report, const Machine &machine, std::vector<ModuleResult> modules) {
    read_states(report, machine);
    report.found = find_findings(report.functions, report.hierarchies, &FunctionReport::before);
    report.findings = find_findings(report.functions, report.hierarchies, &FunctionReport::after);
    report.modules = std::move(modules);
    report.messages = log_record();
}

void read_drivers(Report &report, const Sysfs &sysfs) {
    for (const FunctionReport &row : report.functions)
        if (std::string driver = sysfs.driver(row.function.id()); !driver.empty())
            report.drivers[row.function.id()] = std::move(driver);
}

}  // namespace host
