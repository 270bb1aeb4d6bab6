#include "host/requests/judge_values.h"

#include "host/base/words.h"

namespace host {
namespace {

std::string control_text(const char *name, bool enabled) {
    return std::string(name) + (enabled ? " on" : " off");
}

// Returns "128 bytes", "generation off, checking on"; without what the function does not have.
std::string held_text(const RequestedFunction &asked, const FeatureState &state) {
    if (asked.payload_size)
        return state.mps && state.mps->current ? std::to_string(*state.mps->current) + " bytes"
                                               : "";
    std::vector<std::string> controls;
    if (asked.generation && state.ecrc && state.ecrc->gen.capable)
        controls.push_back(control_text("generation", state.ecrc->gen.enabled));
    if (asked.checking && state.ecrc && state.ecrc->chk.capable)
        controls.push_back(control_text("checking", state.ecrc->chk.enabled));
    return join(controls, ", ");
}

// Returns "128 bytes on 42:00.0 and 42:00.1; 256 bytes on 40:01.0".
std::string held_text(const RequestReport &report, const MachineView &view) {
    std::map<std::string, std::vector<std::string>> addresses;
    for (const RequestedFunction &asked : report.functions) {
        const FunctionReport &row = view.report.functions[asked.function];
        if (const std::string text = held_text(asked, row.after); !text.empty())
            addresses[text].push_back(row.address);
    }
    std::vector<std::string> texts;
    for (const auto &[text, all] : addresses)
        texts.push_back(text + " on " + listed(all, MOST_ADDRESSES));
    return join(texts, "; ");
}

}  // namespace

void set_outcome(RequestReport &report, RequestStatus status, const std::string &why,
                 const MachineView &view) {
    report.status = status;
    const std::string held = held_text(report, view);
    report.reason = held + (held.empty() || why.empty() ? "" : ": ") + why;
}

std::string out_of_reach(const MachineView &view, bdf_t bdf) {
    const FunctionReport *const row = function_at(view, bdf);
    if (row == nullptr)
        return "";
    if (row->removed)
        return row->address + " has been removed";
    return row->managed || !left_alone(view, index_of(view, *row)).empty()
               ? ""
               : row->address + " is on a bus that is not managed";
}

std::size_t index_of(const MachineView &view, const FunctionReport &row) {
    return static_cast<std::size_t>(&row - view.report.functions.data());
}

std::string left_alone(const MachineView &view, std::size_t function) {
    const auto root_port = root_port_of(view.report.functions, function);
    if (!root_port)
        return "";
    const auto found = view.report.left_alone.find(view.report.functions[*root_port].function.id());
    return found != view.report.left_alone.end() ? "left alone: " + found->second : "";
}

}  // namespace host
