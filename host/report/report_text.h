// The words that the reports for people have in common, in UTF-8.
#pragma once

#include <string>

#include "host/report/report.h"

namespace host {

// Where there is no such register, or it cannot be read.
constexpr const char *NOTHING_TEXT = "-";

// "root port", "endpoint", "virtual function", "no answer", ...
const char *type_text(const Function &function);

// "removed" by an event, or "no answer" of a function that was there and is not; empty of others.
std::string gone_text(const FunctionReport &row);

// "256"
std::string size_text(std::optional<unsigned> size);

// What a function is set to, with an arrow where that has changed: "128→256", "off→on", and
// "128⇒256" where the host has set it.
std::string payload_text(const FunctionReport &row);
std::string ecrc_text(const FunctionReport &row, EcrcControl EcrcState::*control);

// What rules the payload size of a root port and of all that is below it: "limited to 256 by
// 07:00.0", and why it is left alone if it is.
std::string limit_text(const Report &report, const HierarchyReport &hierarchy);

// Why a hierarchy is not written: "traffic on 02:00.0 (nvme)"; empty for others.
std::string left_alone_text(const Report &report, const HierarchyReport &hierarchy);

// "ECRC on 1 function, the payload size on 0 functions"
std::string changes_text(ChangeCounts counts);

// "47 functions, 34 changed", and how many are special in other ways.
std::string summary_text(const Report &report);

}  // namespace host
