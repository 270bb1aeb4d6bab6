#include "host/watch/line_buffer.h"

#include <unistd.h>

#include <array>
#include <cerrno>

namespace host {

void LineBuffer::fill(int descriptor) {
    std::array<char, LONGEST_LINE> piece{};
    const ssize_t count = read(descriptor, piece.data(), piece.size());
    if (count < 0) {
        is_broken_ = errno != EINTR && errno != EAGAIN;
        return;
    }
    text_.append(piece.data(), static_cast<std::size_t>(count));
    is_at_end_ = count == 0;
    if (is_at_end_ && !text_.empty())
        text_ += '\n';
}

std::optional<std::string> LineBuffer::next() {
    const std::size_t end = text_.find('\n');
    if (end == std::string::npos)
        return std::nullopt;
    std::string line = text_.substr(0, end);
    text_.erase(0, end + 1);
    return line;
}

}  // namespace host
