#include "host/cli/report.h"

#include <algorithm>

#include "host/access/serve.h"
#include "host/cli/address.h"
#include "host/cli/text.h"

namespace host {
namespace {

std::optional<std::size_t> bridge_above(Machine &machine, const Function &function) {
    const bridge_rec *const above = machine.bridges().above(function.bdf);
    if (above == nullptr || above->bridge_kind == BRIDGE_KIND_HOST)
        return std::nullopt;
    const auto functions = machine.functions();
    const auto id = static_cast<RoutingId>(above->bdf & BDF_ROUTING_ID);
    const auto found = std::ranges::lower_bound(functions, id, {}, &Function::id);
    return static_cast<std::size_t>(found - functions.begin());
}

// Behind the address, which is the first word.
std::string name_in_title(const std::string &title) {
    return std::string(
        trim(std::string_view(title).substr(std::min(title.find(' '), title.size()))));
}

}  // namespace

Report begin_report(Machine &machine, unsigned domain) {
    Report report;
    for (const Function &function : machine.functions()) {
        const FeatureState state = read_feature_state(machine, function);
        report.functions.push_back({.function = function,
                                    .address = format_address(domain, function.id()),
                                    .name = name_in_title(machine.space().title(function.id())),
                                    .bridge = bridge_above(machine, function),
                                    .managed = manages(function.id() >> 8U),
                                    .before = state,
                                    .after = state});
    }
    return report;
}

void end_report(Report &report, const Machine &machine, std::vector<ModuleResult> modules) {
    for (FunctionReport &row : report.functions)
        row.after = read_feature_state(machine, row.function);
    report.modules = std::move(modules);
    report.messages = log_counts();
}

}  // namespace host
