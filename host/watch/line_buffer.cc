#include "host/watch/line_buffer.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>

namespace host {

void LineBuffer::fill(int descriptor) {
    std::array<char, LONGEST_LINE + 1> piece{};
    const ssize_t count = read(descriptor, piece.data(), piece.size());
    if (count < 0 && (errno == EINTR || errno == EAGAIN))
        return;
    is_at_end_ = count <= 0;
    if (count < 0)
        text_.clear();
    else if (count > 0)
        text_.append(piece.data(), static_cast<std::size_t>(count));
    else if (!text_.empty())
        text_ += '\n';
    if (!has_line() && text_.size() > LONGEST_LINE)
        text_.resize(LONGEST_LINE + 1);
}

std::string LineBuffer::take_line() {
    const std::size_t end = text_.find('\n');
    std::string line = text_.substr(0, std::min(end, LONGEST_LINE + 1));
    text_.erase(0, end + 1);
    return line;
}

}  // namespace host
