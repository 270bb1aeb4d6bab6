#include "host/base/columns.h"

#include "host/base/words.h"

#include <algorithm>

namespace host {
namespace {

constexpr std::string_view ELLIPSIS = "…";

// A byte 10xxxxxx continues the character that an earlier byte began.
bool begins_character(char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U;
}

// Returns the position of the first byte behind `columns` characters.
std::size_t end_of_columns(std::string_view text, std::size_t columns) {
    std::size_t seen = 0;
    for (std::size_t at = 0; at < text.size(); ++at)
        if (begins_character(text[at]) && seen++ == columns)
            return at;
    return text.size();
}

}  // namespace

std::size_t display_width(std::string_view text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), begins_character));
}

std::string first_columns(std::string_view text, std::size_t columns) {
    return std::string(text.substr(0, end_of_columns(text, columns)));
}

std::string wrapped(std::string_view text, std::size_t columns) {
    std::string result;
    std::size_t used = 0;
    for (const std::string_view word : words(text)) {
        const std::size_t width = display_width(word);
        const bool fits = used + 1 + width <= columns;
        if (!result.empty())
            result += fits ? ' ' : '\n';
        result += word;
        used = fits && used > 0 ? used + 1 + width : width;
    }
    return result;
}

std::string last_words(const std::string &text, std::size_t columns) {
    const std::size_t width = display_width(text);
    if (width <= columns)
        return text;
    for (std::size_t at = text.find(' '); at != std::string::npos; at = text.find(' ', at + 1)) {
        const std::size_t dropped = display_width(std::string_view(text).substr(0, at));
        if (width - dropped + 1 <= columns)
            return std::string(ELLIPSIS) + text.substr(at);
    }
    const std::size_t kept = columns > 0 ? columns - 1 : 0;
    return std::string(ELLIPSIS) + text.substr(first_columns(text, width - kept).size());
}

}  // namespace host
