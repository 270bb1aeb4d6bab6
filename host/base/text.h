// Text in and out: input files, words, numbers, and text of others that is shown to the user.
#pragma once

#include <cstdint>
#include <filesystem>
#include <istream>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// Input that cannot be used: nothing has been run, and the exit status is 2. `what()` is one or
// more lines, each with the file and line it is about, as safe_text() shows it.
class InputError : public std::runtime_error {
public:
    explicit InputError(const std::string &line);
    explicit InputError(const std::vector<std::string> &lines);
};

// The whole of a file, or what is left of a stream: up to 16 MiB, without a UTF-8 byte order mark
// at the start. Throws InputError, which names the file.
std::string read_text_file(const std::filesystem::path &file);
std::string read_text_stream(std::istream &in, const std::string &name);

// "FILE:LINE: reason: text", the form of every complaint about a line.
std::string line_complaint(const std::string &file, std::size_t line, std::string_view reason,
                           std::string_view text);

// The start of a text as safe_text() shows it, cut at a length that still shows what is meant.
std::string excerpt(std::string_view text, std::size_t longest = 120);

// "1 function", "2 functions"
std::string functions_text(std::size_t count);

// Columns that UTF-8 text takes in a terminal, one for each character, and its first `columns` of
// them.
std::size_t display_width(std::string_view text);
std::string first_columns(std::string_view text, std::size_t columns);

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

}  // namespace host
