// Reads the lines of the feature configuration file. A line counts when it holds a keyword, "=" and
// a value; the first "=" separates them. Keywords match without regard to case. A value ends at the
// first character that its feature does not take.
#pragma once

#include <cstdint>

#include "module/base/feature.h"

namespace enable_features {

struct token_t {
    const char *text;  // null when there is none
    std::uint32_t length;
};

// Returns the keyword in front of `equals`, the first "=" of the line; none when that is null.
token_t keyword_before(const char *line, const char *equals);

// Returns the row of a keyword, or null.
feature_t *row_of(const char *keyword);

// Returns the value of the row between `equals` and the line's end.
token_t value_behind(const char *equals, const char *eol, const feature_t &row);

// Returns the next position to look for a line: behind the comments that follow `eol`. Behind the
// file's last byte nothing is read, and find_eol() finds no line there.
const char *line_after(const char *eol, const char *last);

}  // namespace enable_features
