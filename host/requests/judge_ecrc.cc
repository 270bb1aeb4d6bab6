// The last line that names a function and sets a control decides on that control.
#include <algorithm>

#include "host/requests/judge_values.h"

namespace host {
namespace {

using enable_features::ecrc_setting;
using enable_features::scope_t;

// The functions, by index, on whose controls a later line decides.
struct Taken {
    std::vector<bool> gen;
    std::vector<bool> chk;
};

class EcrcJudge {
public:
    EcrcJudge(const Judged<EcrcRequest> &judged, const MachineView &view, Taken &taken)
        : request_(judged.request), report_(judged.report), view_(view), taken_(taken) {}

    void judge() {
        const Rows rows = selected(view_, request_.selection);
        report_.is_absent = rows.empty();
        const std::string unreachable =
            is_single() ? out_of_reach(view_, request_.selection.bdf) : "";
        if (unreachable.empty())
            for (const FunctionReport *row : rows)
                judge_function(*row);
        if (!unreachable.empty())
            set_outcome(report_, RequestStatus::REFUSED, unreachable, view_);
        else if (rows.empty())
            set_outcome(report_, RequestStatus::DROPPED, problem(request_, rows, view_), view_);
        else
            set_status(rows);
    }

private:
    bool is_single() const { return request_.selection.scope == scope_t::single; }

    // Returns the setting to be reached; none where nothing is asked, where a later line decides,
    // and where one of a set has no such control.
    std::optional<bool> wanted(ecrc_setting setting, bool capable,
                               std::vector<bool>::reference taken) {
        if (setting == 0)
            return std::nullopt;
        const bool replaced = taken;
        taken = true;
        replaced_ |= replaced;
        lacks_ |= !replaced && !capable;
        return replaced || (!capable && !is_single()) ? std::nullopt : std::optional(setting > 0);
    }

    void judge_function(const FunctionReport &row) {
        const auto index = index_of(view_, row);
        const std::string reason = left_alone(view_, index);
        if (!row.managed && reason.empty())
            return;
        const EcrcState before = row.before.ecrc.value_or(EcrcState{});
        const EcrcState after = row.after.ecrc.value_or(EcrcState{});
        const RequestedFunction asked = {
            .function = index,
            .generation = wanted(request_.requests.gen, before.gen.capable, taken_.gen[index]),
            .checking = wanted(request_.requests.chk, before.chk.capable, taken_.chk[index])};
        if (!asked.generation && !asked.checking)
            return;
        const bool is_reached = !lacks_single() &&
                                after.gen.enabled == asked.generation.value_or(after.gen.enabled) &&
                                after.chk.enabled == asked.checking.value_or(after.chk.enabled);
        ++report_.selected;
        report_.reached += is_reached ? 1 : 0;
        if (is_single() || !is_reached)
            report_.functions.push_back(asked);
        if (!is_reached && why_.empty())
            why_ = reason;
    }

    bool lacks_single() const { return lacks_ && is_single(); }

    // Functions of a set that lack a control are no fault, unless all of them do. Where a line
    // names every function, no fault is left then but a dump that ends before the controls.
    void set_status(const Rows &rows) {
        const auto is_unknown = [](const auto *row) { return row->before.ecrc_unknown; };
        if (lacks_single())
            set_outcome(report_, RequestStatus::REFUSED, problem(request_, rows, view_), view_);
        else if (report_.reached < report_.selected)
            set_outcome(report_, RequestStatus::NOT_REACHED, why_, view_);
        else if (report_.selected != 0)
            return;
        else if (replaced_)
            report_.status = RequestStatus::REPLACED;
        else if (request_.selection.scope != scope_t::every_function ||
                 std::ranges::any_of(rows, is_unknown))
            set_outcome(report_, RequestStatus::REFUSED, none_text(rows), view_);
    }

    std::string none_text(const Rows &rows) const {
        const std::string text = problem(request_, rows, view_);
        return text.empty() ? "no function that the line selects is managed and has the control"
                            : text;
    }

    const EcrcRequest &request_;
    RequestReport &report_;
    const MachineView &view_;
    Taken &taken_;
    bool replaced_ = false;
    bool lacks_ = false;
    std::string why_;
};

}  // namespace

void judge_requests(const std::vector<Judged<EcrcRequest>> &requests, const MachineView &view) {
    const std::size_t count = view.report.functions.size();
    Taken taken{std::vector<bool>(count), std::vector<bool>(count)};
    for (auto judged = requests.rbegin(); judged != requests.rend(); ++judged)
        EcrcJudge(*judged, view, taken).judge();
}

}  // namespace host
