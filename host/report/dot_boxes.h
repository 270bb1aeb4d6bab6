// The boxes of functions in the picture, as HTML-like labels of Graphviz.
#pragma once

#include <cstddef>
#include <string>

#include "host/report/report.h"

namespace host {

// One strong colour marks what has changed; the rest is calm.
constexpr const char *CHANGED_COLOR = "#b45309";

// Returns vendor and device, in lines that fit into a box.
std::string shown_name(const FunctionReport &row);

// Returns "endpoint", "virtual function of 04:00.0", "root port, not managed", ...
std::string type_and_state(const FunctionReport &row);

bool payload_changed(const FunctionReport &row);

// Returns the table cell of the payload size; `limits` marks the one that limits its hierarchy.
std::string payload_cell(const FunctionReport &row, bool limits);

// Returns the table cell of an ECRC control, which `name` names.
std::string badge(const FunctionReport &row, const char *name, EcrcControl EcrcState::*control);

// Returns the row of a function in its device's table; `index` is its index in the report. The name
// is not repeated if that of `previous`, the function before it in the device or null, is the same.
std::string function_box(const FunctionReport &row, std::size_t index, bool limits,
                         const FunctionReport *previous);

}  // namespace host
