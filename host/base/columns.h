// Counts the columns that UTF-8 text takes in a terminal: one for each character.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace host {

std::size_t display_width(std::string_view text);

// Returns the start of the text that takes no more than `columns`.
std::string first_columns(std::string_view text, std::size_t columns);

// Breaks a text between its words into lines of at most `columns` where words allow it.
std::string wrapped(std::string_view text, std::size_t columns);

}  // namespace host
