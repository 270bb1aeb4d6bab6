// The report for programs: one JSON object.
#pragma once

#include <iosfwd>

#include "host/cli/report.h"

namespace host {

// {"functions": [...], "modules": [...], "messages": {...}}, with null where a function has no such
// register, and for what cannot be read at the end because the function has been removed.
void write_json(std::ostream &out, const Report &report);

}  // namespace host
