#include "tools/fleet/report_input.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "host/base/input.h"

namespace fleet {
namespace {

[[noreturn]] void refuse_file(const std::string &file, int error) {
    throw host::InputError(file + ": cannot be read: " + std::generic_category().message(error));
}

std::size_t line_ends(const char *begin, const char *end) {
    return static_cast<std::size_t>(std::count(begin, end, '\n'));
}

}  // namespace

ReportInput::ReportInput(const std::string &file)
    : file_(file == "-" ? "standard input" : file),
      descriptor_(file == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                              : open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (!descriptor_)
        refuse_file(file_, errno);
}

bool ReportInput::has_more() {
    stream_.clear();
    stream_ >> std::ws;
    return sgetc() != traits_type::eof();
}

void ReportInput::check() const {
    if (error_ != 0)
        refuse_file(file_, error_);
}

void ReportInput::skip_report() {
    if (has_begun_line()) {
        sungetc();
        return;
    }
    for (int_type c = sgetc(); c != traits_type::eof(); c = sgetc()) {
        sbumpc();
        if (c == '\n' && sgetc() == '{')
            return;
    }
}

// A line end belongs to the line that it ends. A reason may quote a report, whose texts and numbers
// have any length.
void ReportInput::refuse(const std::string &reason) const {
    constexpr std::size_t LONGEST = 200;
    const bool ends_line = taken() > 0 && *(gptr() - 1) == '\n';
    throw host::InputError(file_ + ":" + std::to_string(next_line() - (ends_line ? 1 : 0)) +
                           ": byte " + std::to_string(bytes_before_ + taken()) + ": " +
                           host::excerpt(reason, LONGEST));
}

std::size_t ReportInput::next_line() const {
    return lines_before_ + line_ends(eback(), gptr()) + 1;
}

ReportInput::int_type ReportInput::underflow() {
    if (taken() > 0) {
        bytes_before_ += taken();
        lines_before_ += line_ends(eback(), gptr());
        last_before_ = *(gptr() - 1);
    }
    ssize_t got = 0;
    do
        got = read(descriptor_.number(), buffer_.data(), buffer_.size());
    while (got < 0 && errno == EINTR);
    error_ = got < 0 ? errno : 0;
    const auto bytes = static_cast<std::size_t>(std::max<ssize_t>(got, 0));
    setg(buffer_.data(), buffer_.data(), buffer_.data() + bytes);
    return bytes == 0 ? traits_type::eof() : traits_type::to_int_type(buffer_[0]);
}

bool ReportInput::has_begun_line() const {
    if (taken() == 0 || *(gptr() - 1) != '{')
        return false;
    return (taken() > 1 ? *(gptr() - 2) : last_before_) == '\n';
}

}  // namespace fleet
