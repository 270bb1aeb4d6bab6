// The module's own lists and decisions tell what becomes of each request: its endpoint list takes
// them in the order of the lines, and is walked as at start-up.
#include "tools/check/mps_on_machine.h"

#include <algorithm>
#include <map>

#include "features/mps/endpoint_list.h"
#include "features/mps/hierarchy.h"
#include "features/mps/register_access.h"
#include "host/base/address.h"
#include "host/base/words.h"
#include "topology/classification.h"

namespace check {
namespace {

namespace module = enable_features;
using module::mps_entry;

bool can_be_set(bdf_t bdf) {
    if (!module::is_an_ep(bdf, nullptr))
        return false;
    const mps_entry *const entry = module::mps_find_entry(bdf);
    return entry != nullptr && module::has_path(entry);
}

// Returns why a request for every endpoint sets nothing; empty when it can set something.
std::string refusal_of_all() {
    for (const mps_entry *entry = module::first_mps_entry(module::ep_list()); entry != nullptr;
         entry = module::next_mps_entry(entry))
        if (module::has_path(entry))
            return "";
    return "no endpoint has a path from a root port, the line sets nothing: leave it out";
}

std::string refusal_of_bridge(const host::Function &bridge, const host::MpsRequest &request,
                              const host::MachineView &view) {
    const auto is_below = [&](bdf_t bdf) {
        return pci::bus_of(bdf) >= bridge.secondary && pci::bus_of(bdf) <= bridge.subordinate &&
               can_be_set(bdf);
    };
    const module::selection_t single = {module::scope_t::single, request.bdf};
    const auto all = host::selected(view, {module::scope_t::every_function, BDF_NONE});
    const bool any = std::ranges::any_of(
        all, [&](const host::FunctionReport *row) { return is_below(row->function.bdf); });
    const std::string text = host::bdf_text(bridge.bdf) + " is a bridge, the line sets nothing: ";
    return any ? text + "write an endpoint below it, " +
                     host::suggestion(view, request.value, single, is_below)
               : text + "no endpoint is below it, " +
                     host::suggestion(view, request.value, single, can_be_set);
}

// Returns why a request for one endpoint sets nothing; empty when it can.
std::string refusal(const host::MpsRequest &request, const host::MachineView &view) {
    const std::string address = host::bdf_text(request.bdf);
    const module::selection_t single = {module::scope_t::single, request.bdf};
    const host::Rows rows = host::selected(view, single);
    if (rows.empty())
        return "there is no " + address + ", the line sets nothing: " +
               host::suggestion(view, request.value, single, can_be_set);
    const host::Function &function = rows.front()->function;
    if (std::string text = host::wrong_form(function, request.bdf); !text.empty())
        return "the line sets nothing, " + text;
    if (function.port_type == PORT_TYPE_RCIEP)
        return address + " is integrated in the root complex and has no path, the line sets "
                         "nothing: leave it out";
    if (function.is_bridge())
        return refusal_of_bridge(function, request, view);
    if (!module::is_an_ep(request.bdf, nullptr))
        return address + " is no endpoint, the line sets nothing: write an endpoint, " +
               host::suggestion(view, request.value, single, can_be_set);
    return can_be_set(request.bdf) ? ""
                                   : address + " has no path from a root port, the line sets "
                                               "nothing: leave it out";
}

// The request of each entry.
using Wanted = std::map<const mps_entry *, const host::MpsRequest *>;

// Builds the list, if need be, and forgets the requests of the file before.
void clear_requests() {
    pthread_once(&module::ep_list_once, module::ep_list_once_init);
    for (mps_entry *entry = module::first_mps_entry(module::ep_list()); entry != nullptr;
         entry = module::next_mps_entry(entry))
        entry->mps = 0;
}

void take(const host::MpsRequest &request, Wanted &wanted) {
    module::mps_update_entry(request.bdf, request.size);
    if (request.bdf != BDF_NONE) {
        wanted[module::mps_find_entry(request.bdf)] = &request;
        return;
    }
    for (const mps_entry *entry = module::first_mps_entry(module::ep_list()); entry != nullptr;
         entry = module::next_mps_entry(entry))
        wanted[entry] = &request;
}

std::string bytes(std::uint32_t size) {
    return std::to_string(size) + " bytes";
}

// Returns the functions that allow no more below a root port, the first three of them.
std::string limiters(const host::MachineView &view, bdf_t root_port) {
    std::vector<std::string> addresses;
    for (const host::HierarchyReport &hierarchy : view.report.hierarchies)
        if (view.report.functions[hierarchy.root_port].function.bdf == root_port)
            for (const std::size_t limiter : hierarchy.limiters)
                addresses.push_back(view.report.functions[limiter].address);
    const std::size_t more = addresses.size() - std::min<std::size_t>(addresses.size(), 3);
    addresses.resize(addresses.size() - more);
    return host::join(addresses, ", ") +
           (more != 0 ? " and " + std::to_string(more) + " more" : "");
}

// The decision below one root port.
struct Decided {
    std::uint32_t size = 0;
    const mps_entry *by = nullptr;
    std::size_t line = 0;
    std::vector<std::size_t> remarked;  // lines, each once
};

// Returns the address of the first endpoint of an entry's device, whose function 0 may be a bridge.
std::string address_of(const mps_entry *entry, const host::MachineView &view) {
    for (const host::FunctionReport &row : view.report.functions)
        if (pci::function_0_of(row.function.bdf) == entry->bdf && can_be_set(row.function.bdf))
            return host::bdf_text(row.function.bdf);
    return host::bdf_text(entry->bdf);
}

// Remarks on a request that is above the maximum of its path.
void remark_refused(const mps_entry *entry, const host::MpsRequest &request,
                    const host::MachineView &view, host::Remarks &remarks) {
    const bdf_t root_port = entry->rp->bridge->bdf;
    const std::string limit = std::to_string(entry->rp->path_max);
    remarks.warning(
        request.line,
        bytes(request.size) + " are dropped for " + address_of(entry, view) + ", below root port " +
            host::bdf_text(root_port) + " the limit is " + limit + " (of " +
            limiters(view, root_port) + "): " +
            (request.bdf == BDF_NONE ? "add a line for it, with max or " : "write max or ") +
            limit);
}

// Remarks on a request that another endpoint's has forestalled. It is only a note for a line
// that names every endpoint, because another line that names one is meant to differ.
void remark_forestalled(const mps_entry *entry, const host::MpsRequest &request,
                        const Decided &decided, const host::MachineView &view,
                        host::Remarks &remarks) {
    const std::string text =
        address_of(entry, view) + " gets " + bytes(decided.size) + ", because " +
        address_of(decided.by, view) + " (line " + std::to_string(decided.line) +
        ") is the first below the same root port, " + host::bdf_text(entry->rp->bridge->bdf);
    if (request.bdf == BDF_NONE)
        remarks.note(request.line, text);
    else
        remarks.warning(request.line, text + ": write the size you want there");
}

void decide(const mps_entry *entry, const host::MpsRequest &request, const host::MachineView &view,
            Decided &decided, host::Remarks &remarks) {
    const module::mps_decision_t decision =
        module::decide_mps(request.size, entry->rp->path_max, decided.size);
    const std::uint32_t wanted =
        request.size == module::MPS_MAX ? entry->rp->path_max : request.size;
    const bool said = std::ranges::find(decided.remarked, request.line) != decided.remarked.end();
    if (decision.action == module::mps_decision_t::PROGRAM) {
        decided.size = decision.size;
        decided.by = entry;
        decided.line = request.line;
    } else if (!said && decision.action == module::mps_decision_t::REFUSED) {
        remark_refused(entry, request, view, remarks);
        decided.remarked.push_back(request.line);
    } else if (!said && decision.action == module::mps_decision_t::ALREADY_SET &&
               wanted != decided.size) {
        remark_forestalled(entry, request, decided, view, remarks);
        decided.remarked.push_back(request.line);
    }
}

}  // namespace

void check_on_machine(const std::vector<host::MpsRequest> &requests, const host::MachineView &view,
                      host::Remarks &remarks) {
    Wanted wanted;
    clear_requests();
    for (const host::MpsRequest &request : requests) {
        const std::string text =
            request.bdf == BDF_NONE ? refusal_of_all() : refusal(request, view);
        if (text.empty())
            take(request, wanted);
        else
            remarks.warning(request.line, text);
    }
    std::map<const module::rp_entry *, Decided> decided;
    for (const mps_entry *entry = module::first_mps_entry(module::ep_list()); entry != nullptr;
         entry = module::next_mps_entry(entry))
        if (const auto request = wanted.find(entry);
            request != wanted.end() && module::has_path(entry))
            decide(entry, *request->second, view, decided[entry->rp], remarks);
}

}  // namespace check
