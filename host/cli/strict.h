// Tells which lines of feature files a run has not brought about.
#pragma once

#include <vector>

#include "host/modules/module_entry.h"
#include "host/requests/judge.h"

namespace host {

// Reads the feature files of the modules, in the order in which the modules read them. An argument
// that names none, and should, counts as a file that cannot be used.
std::vector<FeatureFile> open_feature_files(const std::vector<ModuleEntry> &modules);

// Logs an error for each fault (is_fault()), with `is_part` none where a line names a function that
// may be one of another domain. Returns false when there is one.
bool report_faults(const std::vector<RequestReport> &requests, bool is_part);

}  // namespace host
