// Takes text apart into words and numbers, and puts it together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// Remove blanks, tabs and carriage returns at both ends; return the words between them.
std::string_view trim(std::string_view text);
std::vector<std::string_view> words(std::string_view text);

// Returns the pieces between separators, including empty ones.
std::vector<std::string_view> split(std::string_view text, char separator);
std::string join(const std::vector<std::string> &pieces, std::string_view separator);

// Returns "a", "a and b", or with more pieces than `most`, which is above 1, "a, b and 3 more".
std::string listed(const std::vector<std::string> &pieces, std::size_t most);

// Read a whole text as a number: hexadecimal digits alone, or decimal, or "0x" and hexadecimal.
// nullopt for any other text and for numbers above 32 bits.
std::optional<std::uint32_t> parse_hex(std::string_view text);
std::optional<std::uint32_t> parse_number(std::string_view text);

// Returns "1 function", "2 functions".
std::string functions_text(std::size_t count);

}  // namespace host
