// Writes the report for programs: one JSON object.
#pragma once

#include <iosfwd>
#include <string>

#include "host/report/report.h"

namespace host {

// {"functions": [...], "hierarchies": [...], "modules": [...], "messages": {...}}, with null where
// a function has no such register, and for what cannot be read at the end because the function has
// been removed. hoplar(8) describes the fields. Of functions only those that are selected are
// written, not the bridges above them, because each stands for itself here.
void write_json(std::ostream &out, const Report &report);

// Returns the same as one line, without its end.
std::string json_line(const Report &report);

}  // namespace host
