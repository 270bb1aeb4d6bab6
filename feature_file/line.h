// Reads the lines of the feature configuration file. A line counts when it holds a keyword, "=" and
// a value; the first "=" separates them. Keywords match without regard to case. A value ends at the
// first character that its feature does not take.
#pragma once

#include <cstdint>

#include "platform/config_text.h"

namespace enable_features {

// The keywords, in the order in which the module's features start.
enum feature_row : std::uint32_t { ROW_FB2B, ROW_ASPM, ROW_MPS, ROW_ECRC, num_features };

struct token_t {
    const char *text;  // null when there is none
    std::uint32_t length;
};

// Returns the keyword in front of `equals`, the first "=" of the line; none when that is null.
token_t keyword_before(const char *line, const char *equals);

// Returns the row of a keyword; num_features when it is none.
feature_row row_of(const char *keyword);

// Returns the characters that values of a row consist of.
name_char_t value_chars(feature_row row);

// Returns the value between `equals` and the line's end, which consists of the characters that
// `is_value_char` takes.
token_t value_behind(const char *equals, const char *eol, name_char_t is_value_char);

// Returns the next position to look for a line: behind the comments that follow `eol`. Behind the
// file's last byte nothing is read, and find_eol() finds no line there.
const char *line_after(const char *eol, const char *last);

}  // namespace enable_features
