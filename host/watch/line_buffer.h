// Text that arrives in pieces, cut into lines.
#pragma once

#include <optional>
#include <string>

namespace host {

class LineBuffer {
public:
    static constexpr std::size_t LONGEST_LINE = 4096;  // bytes, with its end

    // Takes what can be read. At the end, what is left is a line too; after an error it is none.
    void fill(int descriptor);

    std::optional<std::string> next();

    // After all lines have been taken.
    bool is_too_long() const { return text_.size() >= LONGEST_LINE; }
    bool goes_on() const { return !is_broken_ && !is_at_end_ && !is_too_long(); }

private:
    std::string text_;
    bool is_broken_ = false;
    bool is_at_end_ = false;
};

}  // namespace host
