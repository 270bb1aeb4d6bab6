// Reads a file of reports, and knows at each moment the byte and the line that it has come to.
#pragma once

#include <array>
#include <istream>
#include <streambuf>
#include <string>

#include "host/base/descriptor.h"

namespace fleet {

class ReportInput : private std::streambuf {
public:
    // "-" is standard input. Throws host::InputError for a file that cannot be opened.
    explicit ReportInput(const std::string &file);

    std::istream &stream() { return stream_; }

    // Returns true when something other than white space follows, which is passed over.
    bool has_more();

    // Throws host::InputError when the last read has failed, which otherwise seems to be the end.
    void check() const;

    // Returns true when the byte that was read last is a "{" that begins a line. In a report that
    // hoplar writes only its first one does, whether it has many lines or one.
    bool has_begun_line() const;

    // Goes on, behind a report that cannot be used, to the next such "{"; not beyond the last one.
    void skip_report();

    // Throws host::InputError "FILE:LINE: byte N: REASON", of the byte that was read last.
    [[noreturn]] void refuse(const std::string &reason) const;

    // The line of the byte that comes next, from 1.
    std::size_t next_line() const;

private:
    int_type underflow() override;
    std::size_t taken() const { return static_cast<std::size_t>(gptr() - eback()); }

    const std::string file_;
    host::Descriptor descriptor_;
    std::array<char, 65536> buffer_{};
    std::size_t bytes_before_ = 0, lines_before_ = 0;  // the buffer
    char last_before_ = '\n';
    int error_ = 0;
    std::istream stream_{this};
};

}  // namespace fleet
