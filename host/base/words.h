// Text taken apart into pieces and numbers, and put together.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// Blanks, tabs and carriage returns taken off both ends; the words between them.
std::string_view trim(std::string_view text);
std::vector<std::string_view> words(std::string_view text);

// The pieces between separators, empty ones among them.
std::vector<std::string_view> split(std::string_view text, char separator);
std::string join(const std::vector<std::string> &pieces, std::string_view separator);

// A whole text as a number: hexadecimal digits alone, or decimal or "0x" and hexadecimal. Nothing
// for any other text and for numbers above 32 bits.
std::optional<std::uint32_t> parse_hex(std::string_view text);
std::optional<std::uint32_t> parse_number(std::string_view text);

// "1 function", "2 functions"
std::string functions_text(std::size_t count);

}  // namespace host
