// Text that arrives in pieces, cut into lines.
#pragma once

#include <string>

namespace host {

class LineBuffer {
public:
    // A longer line is cut to one byte more, so that it shows.
    static constexpr std::size_t LONGEST_LINE = 4095;  // bytes, without its end

    // Takes what can be read, a piece at most. At the end, what is left is a line too; after an
    // error it is none.
    void fill(int descriptor);

    bool has_line() const { return text_.find('\n') != std::string::npos; }
    std::string take_line();  // there must be one

    // Whether there is nothing more to be read.
    bool is_at_end() const { return is_at_end_; }

private:
    std::string text_;
    bool is_at_end_ = false;
};

}  // namespace host
