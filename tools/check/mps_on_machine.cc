// The module's own lists and decisions tell what becomes of each request: its endpoint list takes
// them in the order of the lines, and is walked as at start-up.
#include "tools/check/mps_on_machine.h"

#include <algorithm>
#include <map>

#include "features/mps/endpoint_list.h"
#include "features/mps/hierarchy.h"
#include "features/mps/register_access.h"
#include "host/requests/mps_texts.h"
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

const host::EndpointTests TESTS = {
    .is_endpoint = [](bdf_t bdf) { return module::is_an_ep(bdf, nullptr); },
    .can_be_set = can_be_set};

// Returns why a request for every endpoint sets nothing; empty when it can set something.
std::string refusal_of_all() {
    for (const mps_entry *entry = module::first_mps_entry(module::ep_list()); entry != nullptr;
         entry = module::next_mps_entry(entry))
        if (module::has_path(entry))
            return "";
    return "no endpoint has a path from a root port, the line sets nothing: leave it out";
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

// The decision below one root port.
struct Decided {
    host::Decision decision;
    std::vector<std::size_t> remarked;  // lines, each once
};

// Returns the first endpoint of an entry's device, whose function 0 may be a bridge.
bdf_t first_endpoint(const mps_entry *entry, const host::MachineView &view) {
    for (const host::FunctionReport &row : view.report.functions)
        if (pci::function_0_of(row.function.bdf) == entry->bdf && can_be_set(row.function.bdf))
            return row.function.bdf;
    return entry->bdf;
}

// Remarks on a request that is above the maximum of its path, and on one that another endpoint's
// has forestalled. The latter is only a note for a line that names every endpoint, because another
// line that names one is meant to differ.
void decide(const mps_entry *entry, const host::MpsRequest &request, const host::MachineView &view,
            Decided &decided, host::Remarks &remarks) {
    const bdf_t root_port = entry->rp->bridge->bdf;
    const module::mps_decision_t decision =
        module::decide_mps(request.size, entry->rp->path_max, decided.decision.size);
    const std::uint32_t wanted =
        request.size == module::MPS_MAX ? entry->rp->path_max : request.size;
    if (decision.action == module::mps_decision_t::PROGRAM)
        decided.decision = {decision.size, first_endpoint(entry, view),
                            "line " + std::to_string(request.line)};
    if (std::ranges::find(decided.remarked, request.line) != decided.remarked.end())
        return;
    if (decision.action == module::mps_decision_t::REFUSED)
        remarks.warning(request.line,
                        host::too_large_text(request, view, first_endpoint(entry, view), root_port,
                                             entry->rp->path_max));
    else if (decision.action == module::mps_decision_t::ALREADY_SET &&
             wanted != decided.decision.size)
        remarks.add(request.line,
                    request.bdf == BDF_NONE ? host::Severity::NOTE : host::Severity::WARNING,
                    host::forestalled_text(request, first_endpoint(entry, view), root_port,
                                           decided.decision));
    else
        return;
    decided.remarked.push_back(request.line);
}

}  // namespace

void check_on_machine(const std::vector<host::MpsRequest> &requests, const host::MachineView &view,
                      host::Remarks &remarks) {
    Wanted wanted;
    clear_requests();
    for (const host::MpsRequest &request : requests) {
        const std::string text =
            request.bdf == BDF_NONE ? refusal_of_all() : host::refusal(request, view, TESTS);
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
