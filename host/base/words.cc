#include "host/base/words.h"

#include <algorithm>
#include <charconv>
#include <system_error>

namespace host {
namespace {

constexpr std::string_view BLANKS = " \t\r";

std::optional<std::uint32_t> parse(std::string_view digits, int base) {
    std::uint32_t value = 0;
    const char *const end = digits.data() + digits.size();
    const auto [stopped, error] = std::from_chars(digits.data(), end, value, base);
    if (error != std::errc() || stopped != end)
        return std::nullopt;
    return value;
}

}  // namespace

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

std::string listed(const std::vector<std::string> &pieces, std::size_t most) {
    if (pieces.size() < 2)
        return pieces.empty() ? "" : pieces[0];
    const std::size_t shown = (pieces.size() > most ? most : pieces.size()) - 1;
    const auto end = pieces.begin() + static_cast<std::ptrdiff_t>(shown);
    const std::string last =
        pieces.size() > most ? std::to_string(pieces.size() - shown) + " more" : pieces.back();
    return join({pieces.begin(), end}, ", ") + " and " + last;
}

std::string functions_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " function" : " functions");
}

}  // namespace host
