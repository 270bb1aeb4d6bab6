#include "host/requests/mps_texts.h"

#include <algorithm>

#include "host/base/address.h"
#include "host/base/words.h"

namespace host {
namespace {

std::string bytes(std::uint32_t size) {
    return std::to_string(size) + " bytes";
}

std::string limiters(const MachineView &view, bdf_t root_port) {
    std::vector<std::string> addresses;
    for (const HierarchyReport &hierarchy : view.report.hierarchies)
        if (view.report.functions[hierarchy.root_port].function.bdf == root_port)
            for (const std::size_t limiter : hierarchy.limiters)
                addresses.push_back(view.report.functions[limiter].address);
    return listed(addresses, MOST_ADDRESSES);
}

std::string refusal_of_bridge(const Function &bridge, const MpsRequest &request,
                              const MachineView &view, const EndpointTests &tests) {
    const auto is_below = [&](bdf_t bdf) {
        return pci::bus_of(bdf) >= bridge.secondary && pci::bus_of(bdf) <= bridge.subordinate &&
               tests.can_be_set(bdf);
    };
    const enable_features::selection_t single = {enable_features::scope_t::single, request.bdf};
    const Rows all = selected(view, {enable_features::scope_t::every_function, BDF_NONE});
    const bool any = std::ranges::any_of(
        all, [&](const FunctionReport *row) { return is_below(row->function.bdf); });
    const std::string text = bdf_text(bridge.bdf) + " is a bridge, the line sets nothing: ";
    return any ? text + "write an endpoint below it, " +
                     suggestion(view, request.value, single, is_below)
               : text + "no endpoint is below it, " +
                     suggestion(view, request.value, single, tests.can_be_set);
}

}  // namespace

std::string refusal(const MpsRequest &request, const MachineView &view,
                    const EndpointTests &tests) {
    const std::string address = bdf_text(request.bdf);
    const enable_features::selection_t single = {enable_features::scope_t::single, request.bdf};
    const Rows rows = selected(view, single);
    if (rows.empty())
        return "there is no " + address + ", the line sets nothing: " +
               suggestion(view, request.value, single, tests.can_be_set);
    const Function &function = rows.front()->function;
    if (std::string text = wrong_form(function, request.bdf); !text.empty())
        return "the line sets nothing, " + text;
    if (function.port_type == PORT_TYPE_RCIEP)
        return address + " is integrated in the root complex and has no path, the line sets "
                         "nothing: leave it out";
    if (function.is_bridge())
        return refusal_of_bridge(function, request, view, tests);
    if (!tests.is_endpoint(request.bdf))
        return address + " is no endpoint, the line sets nothing: write an endpoint, " +
               suggestion(view, request.value, single, tests.can_be_set);
    return tests.can_be_set(request.bdf) ? ""
                                         : address + " has no path from a root port, the line "
                                                     "sets nothing: leave it out";
}

std::string too_large_text(const MpsRequest &request, const MachineView &view, bdf_t device,
                           bdf_t root_port, unsigned limit) {
    const std::string most = std::to_string(limit);
    return bytes(request.size) + " are dropped for " + bdf_text(device) + ", below root port " +
           bdf_text(root_port) + " the limit is " + most + " (of " + limiters(view, root_port) +
           "): " + (request.bdf == BDF_NONE ? "add a line for it, with max or " : "write max or ") +
           most;
}

std::string forestalled_text(const MpsRequest &request, bdf_t device, bdf_t root_port,
                             const Decision &decision) {
    return bdf_text(device) + " gets " + bytes(decision.size) + ", because " +
           bdf_text(decision.device) + " (" + decision.line +
           ") is the first below the same root port, " + bdf_text(root_port) +
           (request.bdf != BDF_NONE ? ": write the size you want there" : "");
}

}  // namespace host
