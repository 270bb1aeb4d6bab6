#include "host/report/report.h"

#include <algorithm>
#include <span>

#include "host/base/address.h"
#include "host/base/words.h"
#include "host/exports/serve.h"

namespace host {
namespace {

// Where each function stands in the report, by routing ID.
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

// Behind the address, which is the first word.
std::string name_in_title(const std::string &title) {
    return std::string(
        trim(std::string_view(title).substr(std::min(title.find(' '), title.size()))));
}

// Reserved codes tell nothing.
bool is_usable(unsigned payload) {
    constexpr unsigned LARGEST = 4096;
    return payload <= LARGEST;
}

void lower_path_max(HierarchyReport &hierarchy, const Report &report, std::size_t index) {
    const FeatureState &state = report.functions[index].before;
    const auto supported = state.mps ? state.mps->supported : std::nullopt;
    if (!supported || !is_usable(*supported))
        return;
    if (hierarchy.path_max && *hierarchy.path_max <= *supported)
        return;
    hierarchy.path_max = supported;
    hierarchy.limited_by = index;
}

// Functions come in ascending order: a root port before what is below it. Last come the bridges
// that may lead into a hierarchy without being part of it.
std::vector<HierarchyReport> find_hierarchies(const Report &report, Machine &machine,
                                              const Positions &positions) {
    std::vector<HierarchyReport> found;
    std::vector<std::size_t> place(report.functions.size());  // of a root port, in `found`
    for (std::size_t i = 0; i < report.functions.size(); ++i) {
        const auto root_port = root_port_of(report, i);
        if (!root_port)
            continue;
        if (*root_port == i) {
            place[i] = found.size();
            found.push_back({.root_port = i, .path_max = {}, .limited_by = {}, .current = {}});
        }
        lower_path_max(found[place[*root_port]], report, i);
    }
    for (const BridgeTree::Rival &rival : machine.bridges().rivals())
        if (const auto root_port =
                root_port_of(report, positions[rival.holder->bdf & BDF_ROUTING_ID]))
            lower_path_max(found[place[*root_port]], report, positions[rival.bdf & BDF_ROUTING_ID]);
    return found;
}

}  // namespace

std::optional<std::size_t> root_port_of(const Report &report, std::size_t function) {
    std::size_t index = function;
    while (report.functions[index].bridge)
        index = *report.functions[index].bridge;
    const Function &top = report.functions[index].function;
    if (!top.is_bridge() || top.port_type != PORT_TYPE_ROOT_PORT)
        return std::nullopt;
    return index;
}

Report begin_report(Machine &machine, unsigned domain) {
    Report report;
    const std::vector<const Function *> functions = machine.functions();
    const Positions positions = positions_of(functions);
    for (const Function *function : functions) {
        const FeatureState state = read_feature_state(machine, *function);
        report.functions.push_back(
            {.function = *function,
             .address = format_address(domain, function->id()),
             .name = name_in_title(machine.space().title(function->id())),
             .physical = function->physical ? format_address(domain, *function->physical) : "",
             .bridge = bridge_above(machine, *function, positions),
             .managed = manages(pci::bus_of(function->bdf)),
             .before = state,
             .after = state});
    }
    report.hierarchies = find_hierarchies(report, machine, positions);
    return report;
}

void refresh_report(Report &report, Machine &machine, unsigned domain) {
    Report now = begin_report(machine, domain);
    const auto id = [](const FunctionReport &row) { return row.function.id(); };
    for (FunctionReport &row : now.functions) {
        const auto old = std::ranges::lower_bound(report.functions, id(row), {}, id);
        if (old == report.functions.end() || !(old->function == row.function))
            continue;
        row.before = old->before;
        row.name = old->name;
    }
    now.left_alone = std::move(report.left_alone);
    report = std::move(now);
}

void read_states(Report &report, const Machine &machine) {
    for (FunctionReport &row : report.functions) {
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
    for (HierarchyReport &hierarchy : report.hierarchies)
        if (const auto &mps = report.functions[hierarchy.root_port].after.mps)
            hierarchy.current = mps->current;
    report.modules = std::move(modules);
    report.messages = log_counts();
}

}  // namespace host
