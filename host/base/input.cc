#include "host/base/input.h"

#include <array>
#include <cerrno>
#include <fstream>
#include <system_error>

#include "host/base/columns.h"
#include "host/base/safe_text.h"
#include "host/base/words.h"

namespace host {
namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
constexpr std::size_t LARGEST_TEXT = std::size_t{16} << 20U;  // bounds the read of a file without
                                                              // an end (/dev/zero)

std::string safe_lines(const std::vector<std::string> &lines) {
    std::vector<std::string> shown;
    for (const std::string &line : lines)
        shown.push_back(safe_text(line));
    return join(shown, "\n");
}

std::string read_stream(std::istream &in, const std::string &name) {
    std::string text;
    std::array<char, 65536> chunk{};
    errno = 0;
    while (in.read(chunk.data(), chunk.size()) || in.gcount() > 0) {
        text.append(chunk.data(), static_cast<std::size_t>(in.gcount()));
        if (text.size() > LARGEST_TEXT)
            throw InputError(name + ": is larger than " + std::to_string(LARGEST_TEXT >> 20U) +
                             " MiB");
    }
    if (in.bad())
        throw InputError(name + ": cannot be read: " + std::generic_category().message(errno));
    return text;
}

}  // namespace

InputError::InputError(const std::string &line) : InputError(std::vector<std::string>{line}) {}

InputError::InputError(const std::vector<std::string> &lines)
    : std::runtime_error(safe_lines(lines)) {}

std::string read_file(const std::filesystem::path &file) {
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored))
        throw InputError(file.string() + ": is a directory");
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw InputError(file.string() +
                         ": cannot be read: " + std::generic_category().message(errno));
    return read_stream(in, file.string());
}

std::string without_byte_order_mark(std::string text) {
    if (text.starts_with(BYTE_ORDER_MARK))
        text.erase(0, BYTE_ORDER_MARK.size());
    return text;
}

std::string read_text_file(const std::filesystem::path &file) {
    return without_byte_order_mark(read_file(file));
}

std::string read_text_stream(std::istream &in, const std::string &name) {
    return without_byte_order_mark(read_stream(in, name));
}

std::string line_complaint(const std::string &file, std::size_t line, std::string_view reason,
                           std::string_view text) {
    return file + ":" + std::to_string(line) + ": " + std::string(reason) + ": " +
           excerpt(trim(text));
}

std::string excerpt(std::string_view text, std::size_t longest) {
    const std::string shown = safe_text(text);
    const std::string start = first_columns(shown, longest);
    return start + (start.size() < shown.size() ? "..." : "");
}

}  // namespace host
