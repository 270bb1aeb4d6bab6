// A machine that feature files are checked against.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "feature_file/ecrc_value.h"
#include "host/report/report.h"
#include "host/requests/values.h"

namespace host {

// The machine is the one that is served; nothing is written to it.
struct MachineView {
    const Machine &machine;
    const Report &report;
};

// Texts name no more functions than this one by one.
constexpr std::size_t MOST_ADDRESSES = 4;

using Rows = std::vector<const FunctionReport *>;

// Returns the function with an address in either form, also one that is gone; null when there is
// none.
const FunctionReport *function_at(const MachineView &view, bdf_t bdf);

// Returns the functions there that a selection holds; for scope `single`, in either form of the
// address.
Rows selected(const MachineView &view, const enable_features::selection_t &selection);

// Returns what to write in place of a value that selects nothing: the same digits as hexadecimal
// numbers, where that selects something that `is_wanted` takes; else the nearest such function.
std::string suggestion(const MachineView &view, const std::string &value,
                       const enable_features::selection_t &selection,
                       const std::function<bool(bdf_t bdf)> &is_wanted);

// Returns a remark on a function that is named in the wrong form, with three numbers or with two;
// empty when the form is right.
std::string wrong_form(const Function &function, bdf_t named);

// Returns what is wrong with a request for these functions; empty when nothing is.
std::string problem(const EcrcRequest &request, const Rows &rows, const MachineView &view);

// Remarks on requests that the machine cannot take; with `describe`, on what each selects.
void check_on_machine(const std::vector<EcrcRequest> &requests, const MachineView &view,
                      bool describe, Remarks &remarks);

}  // namespace host
