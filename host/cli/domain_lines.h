// The lines of feature files that name functions, of which each domain may have its own.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/report/request_report.h"

namespace host {

// Returns what report_named_lines() reads: the lines of one domain that name functions.
std::string named_lines_text(const std::vector<RequestReport> &requests);

// Logs lines that are taken for several domains, and with `strict` those that select nothing in
// any. `texts` are by domain. Returns false when there is one of the latter.
bool report_named_lines(const std::map<unsigned, std::string> &texts, bool strict);

}  // namespace host
