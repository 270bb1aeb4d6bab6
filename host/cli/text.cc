#include "host/cli/text.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fstream>
#include <system_error>

#include "host/server/safe_text.h"

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

bool is_surrogate(std::uint32_t character) {
    return character >= 0xD800 && character <= 0xDFFF;
}

// UTF-8 of two to four bytes: its first byte is one of `lead` but for the bits of `lead_bits`,
// which hold the highest bits of a character between `lowest` and `highest`.
struct Utf8Form {
    std::size_t length;
    unsigned char lead;
    unsigned char lead_bits;
    std::uint32_t lowest;
    std::uint32_t highest;
};

constexpr Utf8Form UTF8_FORMS[] = {
    {.length = 2, .lead = 0xC0, .lead_bits = 0x1F, .lowest = 0x80, .highest = 0x7FF},
    {.length = 3, .lead = 0xE0, .lead_bits = 0x0F, .lowest = 0x800, .highest = 0xFFFD},
    {.length = 4, .lead = 0xF0, .lead_bits = 0x07, .lowest = 0x10000, .highest = 0x10FFFF},
};

bool begins_with(std::string_view text, const Utf8Form &form) {
    const auto lead = static_cast<unsigned char>(text.front());
    if ((lead & ~form.lead_bits) != form.lead || text.size() < form.length)
        return false;
    std::uint32_t character = lead & form.lead_bits;
    for (const char c : text.substr(1, form.length - 1)) {
        if (begins_character(c))
            return false;
        character = character << 6U | (static_cast<unsigned char>(c) & 0x3FU);
    }
    return character >= form.lowest && character <= form.highest && !is_surrogate(character);
}

// Bytes of the character that a text begins with, 0 when it begins with none.
std::size_t character_length(std::string_view text) {
    if (static_cast<unsigned char>(text.front()) < 0x80)
        return 1;
    for (const Utf8Form &form : UTF8_FORMS)
        if (begins_with(text, form))
            return form.length;
    return 0;
}

std::optional<std::uint32_t> parse(std::string_view digits, int base) {
    std::uint32_t value = 0;
    const char *const end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, value, base);
    if (error != std::errc() || stopped != end)
        return std::nullopt;
    return value;
}

std::string printable_lines(const std::vector<std::string> &lines) {
    std::vector<std::string> shown;
    for (const std::string &line : lines)
        shown.push_back(printable(line, line.size()));
    return join(shown, "\n");
}

}  // namespace

InputError::InputError(const std::string &line) : InputError(std::vector<std::string>{line}) {}

InputError::InputError(const std::vector<std::string> &lines)
    : std::runtime_error(printable_lines(lines)) {}

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
           printable(trim(text));
}

std::string printable(std::string_view text, std::size_t longest) {
    const std::size_t end = end_of_columns(text, longest);
    std::string shown;
    for (std::size_t at = 0; at < end;) {
        const std::size_t control = control_length(text.substr(at));
        shown += control == 0 ? text[at] : '?';
        at += std::max<std::size_t>(control, 1);
    }
    if (end < text.size())
        shown += "...";
    return shown;
}

std::string functions_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " function" : " functions");
}

std::string valid_utf8(std::string_view text) {
    constexpr const char *REPLACEMENT = "\uFFFD";
    std::string valid;
    while (!text.empty()) {
        const std::size_t length = character_length(text);
        valid += length == 0 ? REPLACEMENT : text.substr(0, length);
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return valid;
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
