// Writes the report for users: one line for each function, in tree form.
#pragma once

#include <cstddef>
#include <iosfwd>

#include "host/report/report.h"

namespace host {

struct TableStyle {
    bool emphasis = false;  // changed rows in bold
    std::size_t width = 0;  // columns of the terminal, which cut the names; 0: whole names, and no
                            // line is broken
};

// Returns the style for standard output: a terminal's width, and emphasis unless NO_COLOR is set.
TableStyle standard_output_style();

// Writes the columns: "*" for a changed function, address with the buses behind a bridge in
// brackets, port type, payload size as "before→after (supported)", ECRC generation and checking,
// name. The last line sums up.
void write_table(std::ostream &out, const Report &report, TableStyle style);

}  // namespace host
