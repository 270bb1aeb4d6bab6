// What registers say is wrong with a machine, or worth knowing.
#pragma once

#include <string>
#include <vector>

#include "host/report/hierarchy_report.h"

namespace host {

enum class Severity { NOTE, WARNING, ERROR };

struct Finding {
    const char *code;      // for programs, one of a list that is kept: "payload-above-port"
    Severity severity;     // an error loses packets
    std::size_t function;  // index of the one that it is about; of a hierarchy its root port
    std::string text;      // a sentence for people, that begins with the function's address
};

// From the functions' states before the modules were loaded, or at the end. The worst come first,
// then they are in the order of functions.
using State = FeatureState FunctionReport::*;
std::vector<Finding> find_findings(const std::vector<FunctionReport> &functions,
                                   const std::vector<HierarchyReport> &hierarchies, State state);

// "+8.6 %"
std::string gain_text(unsigned from, unsigned to);

// "error"
const char *severity_text(Severity severity);

}  // namespace host
