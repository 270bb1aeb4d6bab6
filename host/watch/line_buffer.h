// Cuts text that arrives in pieces into lines.
#pragma once

#include <string>

namespace host {

class LineBuffer {
public:
    // A longer line is cut to one byte more, so that the caller can tell.
    static constexpr std::size_t LONGEST_LINE = 4095;  // bytes, without its end

    // Reads once. At the end of the input the rest is a line too; after an error it is dropped.
    void fill(int descriptor);

    bool has_line() const { return text_.find('\n') != std::string::npos; }
    std::string take_line();  // there must be one

    // Returns true when the input has ended.
    bool is_at_end() const { return is_at_end_; }

private:
    std::string text_;
    bool is_at_end_ = false;
};

}  // namespace host
