// Writes the report for programs: one JSON object.
#pragma once

#include <iosfwd>
#include <string>

#include "host/report/report.h"

namespace host {

// docs/report.schema.json describes every field; a field that is written and not described there
// fails the tests. Of functions only those that are selected are written, not the bridges above
// them, because each stands for itself here.
void write_json(std::ostream &out, const Report &report);

// Returns the same as one line, without its end.
std::string json_line(const Report &report);

}  // namespace host
