// The last line that names a device decides on it. Requests are compared with what the device and
// all ports above it are set to, because a payload size is one of the whole path.
#include <algorithm>
#include <map>
#include <set>

#include "host/requests/judge_values.h"
#include "host/requests/mps_texts.h"

namespace host {
namespace {

using enable_features::MPS_DEFAULT;
using enable_features::MPS_MAX;

using Requests = std::vector<Judged<MpsRequest>>;

// An endpoint for which a payload size can be requested.
struct Endpoint {
    std::size_t index;
    const HierarchyReport *hierarchy;
    const Judged<MpsRequest> *judged = nullptr;  // the last one that names it
};

bool is_endpoint(const Function &function) {
    return (function.port_type == PORT_TYPE_ENDPOINT ||
            function.port_type == PORT_TYPE_LEGACY_ENDPOINT) &&
           (!pci::is_ari(function.bdf) || function.ext_cap(EXT_CAPID_ARI));
}

// Returns the size that a request is to reach; nullopt where the path's maximum is not known.
std::optional<unsigned> wanted(const MpsRequest &request, const HierarchyReport &hierarchy) {
    return request.size == MPS_MAX ? hierarchy.path_max : request.size;
}

std::optional<unsigned> payload_size(const FunctionReport &row) {
    return row.after.mps ? row.after.mps->current : std::nullopt;
}

class MpsJudge {
public:
    MpsJudge(const Requests &requests, const MachineView &view) : requests_(requests), view_(view) {
        find_endpoints();
    }

    void judge() {
        for (const Judged<MpsRequest> &judged : requests_)
            take(judged);
        find_decisions();
        for (const Endpoint &endpoint : endpoints_)
            if (endpoint.judged != nullptr)
                judge_endpoint(endpoint, *endpoint.judged);
        for (const Judged<MpsRequest> &judged : requests_)
            set_status(judged);
    }

private:
    // The findings about one request.
    struct Tally {
        bool refused = false;        // all that is not reached cannot be
        std::string why;             // of the first that is not reached
        std::set<std::size_t> seen;  // ports that are listed
    };

    const std::vector<FunctionReport> &rows() const { return view_.report.functions; }

    void find_endpoints() {
        std::map<std::size_t, const HierarchyReport *> hierarchies;
        for (const HierarchyReport &hierarchy : view_.report.hierarchies)
            hierarchies[hierarchy.root_port] = &hierarchy;
        for (std::size_t i = 0; i < rows().size(); ++i) {
            const auto root_port = root_port_of(rows(), i);
            if (!root_port || !is_endpoint(rows()[i].function) || !rows()[i].after.reachable ||
                (!rows()[i].managed && left_alone(view_, i).empty()))
                continue;
            devices_[pci::function_0_of(rows()[i].function.bdf)].push_back(endpoints_.size());
            endpoints_.push_back({.index = i, .hierarchy = hierarchies[*root_port]});
        }
    }

    bool can_be_set(bdf_t bdf) const { return devices_.contains(pci::function_0_of(bdf)); }

    std::string refusal_of(const MpsRequest &request) const {
        const EndpointTests tests = {
            .is_endpoint =
                [&](bdf_t bdf) {
                    const Function *const function = view_.machine.find(bdf);
                    return function != nullptr && host::is_endpoint(*function);
                },
            .can_be_set = [&](bdf_t bdf) { return can_be_set(bdf); }};
        return refusal(request, view_, tests);
    }

    // Records a request with the endpoints that it names.
    void take(const Judged<MpsRequest> &judged) {
        if (judged.request.bdf == BDF_NONE) {
            for (Endpoint &endpoint : endpoints_)
                endpoint.judged = &judged;
            return;
        }
        judged.report.is_absent =
            view_.machine.known(pci::routing_id_of(judged.request.bdf)) == nullptr;
        if (const std::string text = out_of_reach(view_, judged.request.bdf); !text.empty())
            set_outcome(judged.report, RequestStatus::REFUSED, text, view_);
        else if (const std::string fault = refusal_of(judged.request); !fault.empty())
            set_outcome(judged.report, RequestStatus::DROPPED, fault, view_);
        else
            for (const std::size_t place : devices_.at(pci::function_0_of(judged.request.bdf)))
                endpoints_[place].judged = &judged;
    }

    // The first endpoint below a root port whose request fits decides on all of them. A size that
    // cannot be set falls back to the default.
    void find_decisions() {
        for (const Endpoint &endpoint : endpoints_) {
            if (endpoint.judged == nullptr || decisions_.contains(endpoint.hierarchy))
                continue;
            const MpsRequest &request = endpoint.judged->request;
            const auto size = wanted(request, *endpoint.hierarchy);
            if (size && *size <= endpoint.hierarchy->path_max.value_or(0))
                decisions_[endpoint.hierarchy] = {&endpoint,
                                                  request.can_be_set() ? *size : MPS_DEFAULT};
        }
    }

    void judge_endpoint(const Endpoint &endpoint, const Judged<MpsRequest> &judged) {
        const auto size = wanted(judged.request, *endpoint.hierarchy);
        const bool is_single = judged.request.bdf != BDF_NONE;
        const bool is_held = payload_size(rows()[endpoint.index]) == size;
        const std::vector<std::size_t> ports = ports_that_differ(endpoint.index, size);
        const bool is_reached = size && is_held && ports.empty();
        if (!is_reached && !is_single && is_set_aside(endpoint))
            return;
        Tally &tally = tallies_[&judged];
        RequestReport &report = judged.report;
        ++report.selected;
        report.reached += is_reached ? 1 : 0;
        if (is_single || !is_held)
            report.functions.push_back({.function = endpoint.index, .payload_size = size});
        for (const std::size_t port : ports)
            if (tally.seen.insert(port).second)
                report.functions.push_back({.function = port, .payload_size = size});
        if (!is_reached)
            explain(endpoint, judged, report.selected - report.reached == 1, tally);
    }

    std::vector<std::size_t> ports_that_differ(std::size_t index,
                                               std::optional<unsigned> size) const {
        std::vector<std::size_t> ports;
        for (auto port = port_above(rows(), index); port; port = port_above(rows(), *port))
            if (rows()[*port].after.mps && payload_size(rows()[*port]) != size)
                ports.push_back(*port);
        return ports;
    }

    // Returns true when a line that names one device has decided on the hierarchy, with success: it
    // is meant to differ from the line that names all.
    bool is_set_aside(const Endpoint &endpoint) const {
        const auto found = decisions_.find(endpoint.hierarchy);
        return found != decisions_.end() && found->second.by->judged->request.bdf != BDF_NONE &&
               payload_size(rows()[endpoint.index]) == found->second.size;
    }

    void explain(const Endpoint &endpoint, const Judged<MpsRequest> &judged, bool is_first,
                 Tally &tally) const {
        const auto [text, is_refusal] = reason(endpoint, judged);
        tally.refused = is_refusal && (is_first || tally.refused);
        if (is_first)
            tally.why = text;
    }

    // Returns the first endpoint of a device, whose function 0 may be a bridge.
    bdf_t first_endpoint(const Endpoint &endpoint) const {
        const bdf_t key = pci::function_0_of(rows()[endpoint.index].function.bdf);
        return rows()[endpoints_[devices_.at(key).front()].index].function.bdf;
    }

    // Returns why a request is not reached, and whether it cannot be.
    std::pair<std::string, bool> reason(const Endpoint &endpoint,
                                        const Judged<MpsRequest> &judged) const {
        if (std::string text = left_alone(view_, endpoint.index); !text.empty())
            return {text, false};
        const bdf_t device = first_endpoint(endpoint);
        const bdf_t root_port = rows()[endpoint.hierarchy->root_port].function.bdf;
        const auto limit = endpoint.hierarchy->path_max;
        if (!limit)
            return {"the largest size of its path cannot be read", true};
        if (judged.request.size != MPS_MAX && judged.request.size > *limit)
            return {too_large_text(judged.request, view_, device, root_port, *limit), true};
        if (!judged.impossible.empty())
            return {judged.impossible, true};
        const auto decided = decisions_.find(endpoint.hierarchy);
        if (decided == decisions_.end() || decided->second.by->judged == &judged ||
            payload_size(rows()[endpoint.index]) != decided->second.size)
            return {"", false};
        const Endpoint &by = *decided->second.by;
        return {forestalled_text(judged.request, device, root_port,
                                 {decided->second.size, first_endpoint(by),
                                  line_text(by.judged->report, judged.report)}),
                false};
    }

    static std::string line_text(const RequestReport &line, const RequestReport &from) {
        return "line " + std::to_string(line.line) +
               (line.file != from.file ? " of " + line.file : "");
    }

    // A line that names every endpoint is reached where there is none that can be set.
    void set_status(const Judged<MpsRequest> &judged) {
        RequestReport &report = judged.report;
        if (report.status != RequestStatus::REACHED)
            return;
        const auto tally = tallies_.find(&judged);
        if (report.reached < report.selected)
            set_outcome(report,
                        tally->second.refused ? RequestStatus::REFUSED : RequestStatus::NOT_REACHED,
                        tally->second.why, view_);
        else if (report.selected == 0 && !endpoints_.empty())
            report.status = RequestStatus::REPLACED;
    }

    struct Decided {
        const Endpoint *by;
        std::uint32_t size;
    };

    const Requests &requests_;
    const MachineView &view_;
    std::vector<Endpoint> endpoints_;
    std::map<bdf_t, std::vector<std::size_t>> devices_;  // places in endpoints_, by device
    std::map<const HierarchyReport *, Decided> decisions_;
    std::map<const Judged<MpsRequest> *, Tally> tallies_;
};

}  // namespace

void judge_requests(const std::vector<Judged<MpsRequest>> &requests, const MachineView &view) {
    MpsJudge(requests, view).judge();
}

}  // namespace host
