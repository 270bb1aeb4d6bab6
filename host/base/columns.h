// Counts the columns that UTF-8 text takes in a terminal: one for each character.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

std::size_t display_width(std::string_view text);

// Returns the start of the text that takes no more than `columns`.
std::string first_columns(std::string_view text, std::size_t columns);

// Returns the text if it fits into the columns, or "…" and its end: from the first word on with
// which that fits, or else its last characters.
std::string last_words(const std::string &text, std::size_t columns);

// Breaks a text between its words into lines of at most `columns` where words allow it.
std::string wrapped(std::string_view text, std::size_t columns);

}  // namespace host
