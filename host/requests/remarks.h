// The remarks about the lines of one feature file.
#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <vector>

#include "host/report/finding.h"

namespace host {

struct Remark {
    std::size_t line;
    Severity severity;  // ERROR: the line is dropped; WARNING: it is not what was meant
    std::string text;
};

class Remarks {
public:
    void error(std::size_t line, std::string text);
    void warning(std::size_t line, std::string text);
    void note(std::size_t line, std::string text);

    // Returns true when there is an error or a warning.
    bool any() const;

    // Writes "FILE:LINE: error: TEXT" for each remark, in the order of the lines.
    void write(const std::string &file, std::ostream &out) const;

private:
    std::vector<Remark> remarks_;
};

// Returns the text in quotation marks.
std::string quoted(std::string_view text);

}  // namespace host
