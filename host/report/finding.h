// Finds what registers tell is wrong with a machine, or worth knowing.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/report/hierarchy_report.h"

namespace host {

enum class Severity { NOTE, WARNING, ERROR };

struct FindingKind {
    const char *code;   // stays the same for programs: "payload-above-port"
    Severity severity;  // ERROR: packets are lost

    bool operator==(const FindingKind &other) const {
        return std::string_view(code) == other.code && severity == other.severity;
    }
};

// Returns all kinds that there are, so that what is counted by kind can have zeros.
std::span<const FindingKind> finding_kinds();

struct Finding : FindingKind {
    std::size_t function;  // index of the function, or of the hierarchy's root port
    std::string text;      // a sentence for users, which names the functions that it is about
    std::vector<std::size_t> several{};  // all functions that it is about, where these are several
};

// Returns the findings from the functions' states before the modules were loaded, or at the end:
// the worst first, then in the order of functions.
using State = FeatureState FunctionReport::*;
std::vector<Finding> find_findings(const std::vector<FunctionReport> &functions,
                                   const std::vector<HierarchyReport> &hierarchies, State state);

// Returns "512 without it: +4.5 %", or "without them" for more than one device, of a hierarchy with
// a larger size that is possible.
std::string without_text(const HierarchyReport &hierarchy);

// Returns "error", "warning" or "note".
const char *severity_text(Severity severity);

}  // namespace host
