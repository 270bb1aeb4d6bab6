// The texts that the reports for users have in common, in UTF-8.
#pragma once

#include <string>

#include "host/report/report.h"

namespace host {

// Stands for a register that is absent or cannot be read.
constexpr const char *NOTHING_TEXT = "-";

// Returns "root port", "endpoint", "virtual function", "no answer", ...
const char *type_text(const Function &function);

// Returns the same in up to 7 columns: "RP", "EP", "VF", "none", ...
const char *narrow_type_text(const Function &function);

// Returns "removed" for a function that an event removed, "no answer" for one that was there and
// does not answer; empty for others.
std::string gone_text(const FunctionReport &row);

// Returns "256".
std::string size_text(std::optional<unsigned> size);

// Return a function's setting, with an arrow where it has changed: "128→256", "off→on", and
// "128⇒256" where the host has set it.
std::string payload_text(const FunctionReport &row);
std::string ecrc_text(const FunctionReport &row, EcrcControl EcrcState::*control);

// Returns what limits the payload size of a hierarchy, "limited to 256 by 07:00.0", and why it is
// left alone if it is.
std::string limit_text(const Report &report, const HierarchyReport &hierarchy);

// Returns why a hierarchy is not written, "traffic on 02:00.0 (nvme)"; empty for others.
std::string left_alone_text(const Report &report, const HierarchyReport &hierarchy);

// Returns "ECRC on 1 function, the payload size on 0 functions".
std::string changes_text(ChangeCounts counts);

// Returns ", 1 error, 2 warnings" in messages, whether or not these were shown; empty without any.
std::string messages_text(const Report &report);

// Returns ", 2 warnings", ", 1 warning", or nothing for none.
std::string counted_text(std::uint64_t count, const char *what);

// Returns "47 functions, 34 changed", and how many are special in other ways; in front of that, of
// a report that does not show all, "12 of 47 functions shown; whole machine: ".
std::string summary_text(const Report &report);

}  // namespace host
