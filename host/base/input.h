// Reads input files and phrases complaints about their lines.
#pragma once

#include <cstddef>
#include <filesystem>
#include <istream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// Input that cannot be used; thrown before anything has run, and the exit status is 2. what() is
// one or more lines, each with the file and line it is about, as safe_text() shows it.
class InputError : public std::runtime_error {
public:
    explicit InputError(const std::string &line);
    explicit InputError(const std::vector<std::string> &lines);
};

// Returns the bytes of a whole file, up to 16 MiB. Throws InputError, which names the file.
std::string read_file(const std::filesystem::path &file);

// Returns the text without a UTF-8 byte order mark at its start.
std::string without_byte_order_mark(std::string text);

// Read a whole text, or the rest of a stream, in the same way but without a UTF-8 byte order mark
// at the start.
std::string read_text_file(const std::filesystem::path &file);
std::string read_text_stream(std::istream &in, const std::string &name);

// Returns "FILE:LINE: reason: text", the form of every complaint about a line.
std::string line_complaint(const std::string &file, std::size_t line, std::string_view reason,
                           std::string_view text);

// Returns the start of a text as safe_text() shows it, at most `longest` columns of it.
std::string excerpt(std::string_view text, std::size_t longest = 120);

}  // namespace host
