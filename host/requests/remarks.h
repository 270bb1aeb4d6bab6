// The remarks about the lines of one feature file.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "host/report/finding.h"

namespace host {

struct Remark {
    Severity severity;       // ERROR: the line is dropped; WARNING: it is not what was meant
    std::string text;        // as safe_text() shows it
    bool is_unread = false;  // a part of the line is not read
};

class Remarks {
public:
    void error(std::size_t line, std::string_view text);
    void warning(std::size_t line, std::string_view text);
    void note(std::size_t line, std::string_view text);

    void add(std::size_t line, Severity severity, std::string_view text);

    // Adds a warning about a part of the line that is not read.
    void unread(std::size_t line, std::string_view text);

    // Returns true when there is an error or a warning.
    bool any() const;

    // Return the first text about a line: of the worst kind; about a part that is not read. Empty
    // when there is none.
    std::string worst(std::size_t line) const;
    std::string unread_part(std::size_t line) const;

    // Writes "FILE:LINE: error: TEXT" for each remark, in the order of the lines.
    void write(const std::string &file, std::ostream &out) const;

private:
    std::map<std::size_t, std::vector<Remark>> remarks_;  // by line
};

// Returns the text in quotation marks.
std::string in_quotes(std::string_view text);

}  // namespace host
