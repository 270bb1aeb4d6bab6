// Makes one report of those of several domains.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "host/base/log.h"

namespace host {

struct DomainReport {
    unsigned domain;
    std::string text;
};

// Writes the tables one below the other, each below its domain.
void write_merged_tables(std::ostream &out, const std::vector<DomainReport> &reports);

// Writes one object with the rows of all, and the sums of what is counted; `own` are the messages
// that belong to no report. Each text is one that write_json() wrote.
void write_merged_json(std::ostream &out, const std::vector<DomainReport> &reports,
                       const LogRecord &own);

// Returns the same as one line, without its end.
std::string merged_json_line(const std::vector<DomainReport> &reports, const LogRecord &own);

// Writes one text, in which each family stands once. `own` are the messages about no domain. Each
// text is one that write_metrics() wrote.
void write_merged_metrics(std::ostream &out, const std::vector<DomainReport> &reports,
                          const LogRecord &own);

// Writes one graph. Each text is one that write_dot_part() wrote.
void write_merged_dot(std::ostream &out, const std::vector<DomainReport> &reports);

}  // namespace host
