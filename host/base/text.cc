#include "host/base/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <system_error>

#include "host/base/safe_text.h"

namespace host {
namespace {

constexpr std::string_view BYTE_ORDER_MARK = "\xEF\xBB\xBF";
constexpr std::string_view BLANKS = " \t\r";
constexpr std::size_t LARGEST_TEXT = std::size_t{16} << 20U;  // ends what has no end (/dev/zero)

// Bytes 10xxxxxx go on with the character that an earlier byte began.
bool begins_character(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
}

// Position of the first byte behind `columns` characters.
std::size_t end_of_columns(std::string_view text, std::size_t columns) {
    std::size_t seen = 0;
    for (std::size_t at = 0; at < text.size(); ++at)
        if (begins_character(text[at]) && seen++ == columns)
            return at;
    return text.size();
}

std::optional<std::uint32_t> parse(std::string_view digits, int base) {
    std::uint32_t value = 0;
    const char *const end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, value, base);
    if (error != std::errc() || stopped != end)
        return std::nullopt;
    return value;
}

std::string safe_lines(const std::vector<std::string> &lines) {
    std::vector<std::string> shown;
    for (const std::string &line : lines)
        shown.push_back(safe_text(line));
    return join(shown, "\n");
}

}  // namespace

InputError::InputError(const std::string &line) : InputError(std::vector<std::string>{line}) {}

InputError::InputError(const std::vector<std::string> &lines)
    : std::runtime_error(safe_lines(lines)) {}

std::string read_text_file(const std::filesystem::path &file) {
    std::error_code ignored;
    if (std::filesystem::is_directory(file, ignored))
        throw InputError(file.string() + ": is a directory");
    errno = 0;
    std::ifstream in(file, std::ios::binary);
    if (!in)
        throw InputError(file.string() +
                         ": cannot be read: " + std::generic_category().message(errno));
    return read_text_stream(in, file.string());
}

std::string read_text_stream(std::istream &in, const std::string &name) {
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
    if (text.starts_with(BYTE_ORDER_MARK))
        text.erase(0, BYTE_ORDER_MARK.size());
    return text;
}

std::string line_complaint(const std::string &file, std::size_t line, std::string_view reason,
                           std::string_view text) {
    return file + ":" + std::to_string(line) + ": " + std::string(reason) + ": " +
           excerpt(trim(text));
}

std::string excerpt(std::string_view text, std::size_t longest) {
    const std::string shown = safe_text(text);
    const std::size_t end = end_of_columns(shown, longest);
    return shown.substr(0, end) + (end < shown.size() ? "..." : "");
}

std::string functions_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " function" : " functions");
}

std::size_t display_width(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins_character));
}

std::string first_columns(std::string_view text, std::size_t columns) {
    return std::string(text.substr(0, end_of_columns(text, columns)));
}

std::string_view trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(BLANKS);
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

std::vector<std::string_view> words(std::string_view text) {
    std::vector<std::string_view> found;
    for (text = trim(text); !text.empty(); text = trim(text)) {
        const std::size_t length = std::min(text.find_first_of(BLANKS), text.size());
        found.push_back(text.substr(0, length));
        text.remove_prefix(length);
    }
    return found;
}

std::vector<std::string_view> split(std::string_view text, char separator) {
    std::vector<std::string_view> pieces;
    for (std::size_t at = text.find(separator); at != std::string_view::npos;
         at = text.find(separator)) {
        pieces.push_back(text.substr(0, at));
        text.remove_prefix(at + 1);
    }
    pieces.push_back(text);
    return pieces;
}

std::string join(const std::vector<std::string> &pieces, std::string_view separator) {
    std::string joined;
    for (const std::string &piece : pieces) {
        if (!joined.empty())
            joined += separator;
        joined += piece;
    }
    return joined;
}

std::optional<std::uint32_t> parse_hex(std::string_view text) {
    return parse(text, 16);
}

std::optional<std::uint32_t> parse_number(std::string_view text) {
    if (text.starts_with("0x") || text.starts_with("0X"))
        return parse(text.substr(2), 16);
    return parse(text, 10);
}

}  // namespace host
