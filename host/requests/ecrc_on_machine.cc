#include <algorithm>

#include "host/base/address.h"
#include "host/base/words.h"
#include "host/requests/view.h"

namespace host {
namespace {

namespace module = enable_features;
using module::scope_t;

constexpr const char *SHORT_DUMP =
    "the dump has only 256 bytes of a function, without ECRC controls, which the line cannot be "
    "checked against: make a full one with sudo lspci -xxxx";

bool has_controls(const FunctionReport &row) {
    const auto &ecrc = row.before.ecrc;
    return ecrc && (ecrc->gen.capable || ecrc->chk.capable);
}

// Returns what is wrong with a request for one function; empty when nothing is.
std::string complaint(const EcrcRequest &request, const FunctionReport &row) {
    const std::string &address = row.address;
    if (!has_controls(row))
        return address + " has no ECRC controls, the line sets nothing: leave it out";
    const auto lacks = [](module::ecrc_setting setting, const EcrcControl &control) {
        return setting != 0 && !control.capable;
    };
    if (lacks(request.requests.gen, row.before.ecrc->gen))
        return address + " cannot generate ECRC: write = for generation";
    if (lacks(request.requests.chk, row.before.ecrc->chk))
        return address + " cannot check ECRC: write = for checking";
    const std::string text = wrong_form(row.function, request.selection.bdf);
    return text.empty() ? "" : "the line is not applied again after an insertion, " + text;
}

// Returns the number of functions that have a control that the request sets.
std::ptrdiff_t count_capable(const EcrcRequest &request, const Rows &rows) {
    const auto takes = [](module::ecrc_setting setting, const EcrcControl &control) {
        return setting != 0 && control.capable;
    };
    return std::ranges::count_if(rows, [&](const FunctionReport *row) {
        const EcrcState ecrc = row->before.ecrc.value_or(EcrcState{});
        return takes(request.requests.gen, ecrc.gen) || takes(request.requests.chk, ecrc.chk);
    });
}

std::string counts(const EcrcRequest &request, const Rows &rows) {
    return functions_text(rows.size()) + ", " + std::to_string(count_capable(request, rows)) +
           " of them with an ECRC control that it sets";
}

}  // namespace

std::string problem(const EcrcRequest &request, const Rows &rows, const MachineView &view) {
    const bool single = request.selection.scope == scope_t::single;
    const auto is_wanted = [&](bdf_t bdf) { return has_controls(*function_at(view, bdf)); };
    if (rows.empty())
        return (single ? "there is no " + bdf_text(request.selection.bdf)
                       : std::string("there is no such function")) +
               ", the line sets nothing: " +
               suggestion(view, request.value, request.selection, is_wanted);
    if (std::ranges::any_of(rows, [](const auto *row) { return row->before.ecrc_unknown; }))
        return SHORT_DUMP;
    if (single)
        return complaint(request, *rows.front());
    if (count_capable(request, rows) == 0)
        return "the line selects " + counts(request, rows) + ": leave it out";
    return "";
}

void check_on_machine(const std::vector<EcrcRequest> &requests, const MachineView &view,
                      bool describe, Remarks &remarks) {
    for (const EcrcRequest &request : requests) {
        const Rows rows = selected(view, request.selection);
        if (const std::string text = problem(request, rows, view); !text.empty())
            remarks.warning(request.line, text);
        else if (describe && request.selection.scope != scope_t::single)
            remarks.note(request.line, "selects " + counts(request, rows));
    }
}

}  // namespace host
