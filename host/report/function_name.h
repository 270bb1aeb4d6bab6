// lspci's text about a function, and how it is shortened.
#pragma once

#include <cstddef>
#include <string>

#include "host/report/function_report.h"

namespace host {

// Returns the class, vendor and device, "PCI bridge: Example Switch A, downstream port 0", without
// what lspci adds to them: the number of the class, the revision and the programming interface.
std::string name_text(const FunctionReport &row);

// Returns as much of that as fits into the columns: without the class, then without the numbers of
// vendor and device where these have names, then the last words, "… downstream port 0", because
// functions of one vendor differ at the end of their names.
std::string fitted_name(const FunctionReport &row, std::size_t columns);

// Returns vendor and device, without what lspci adds.
std::string device_name(const FunctionReport &row);

}  // namespace host
