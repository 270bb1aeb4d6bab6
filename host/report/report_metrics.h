// Writes the numbers of the report for monitoring, as OpenMetrics text that older readers of
// Prometheus' text format take too.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>

#include "host/report/report.h"

namespace host {

// Writes counts of the whole machine, at the end of the run. Each sample has the domain as a label.
// Feature files alone decide which samples there are, not the machine: what could be counted and is
// not there is 0. hoplar(8) describes them.
void write_metrics(std::ostream &out, const Report &report);

// Writes the samples that count messages, as those of a domain of this name.
constexpr const char *MESSAGE_METRIC = "hoplar_messages";
void write_message_metrics(std::ostream &out, const std::string &domain, const LogCounts &counts);

// Ends the text.
constexpr std::string_view METRICS_END = "# EOF\n";

}  // namespace host
