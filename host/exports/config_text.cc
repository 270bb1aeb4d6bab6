// The functions for configuration text. For files written on other systems, a carriage return
// before a line's end counts as a blank, and a byte order mark at the start of any line is skipped,
// because the functions cannot tell a text's first line from the others.
#include "platform/config_text.h"

#include <cstring>
#include <string_view>

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

const char *skip_byte_order_mark(const char *p) {
    constexpr std::string_view MARK = "\xEF\xBB\xBF";
    return std::strncmp(p, MARK.data(), MARK.size()) == 0 ? p + MARK.size() : p;
}

const char *skip_blanks(const char *p) {
    while (is_blank(*p))
        ++p;
    return p;
}

// Returns true when only the line's end stands at `p`.
bool at_line_end(const char *p) {
    while (*p == '\r')
        ++p;
    return *p == '\n' || *p == '\0';
}

// Characters are classified as ASCII, because the process's locale must not change what a file
// means.
bool is_default_name_char(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
           c == '-' || c == '.';
}

}  // namespace

const char *skip_comment(const char *p) {
    while (true) {
        p = skip_byte_order_mark(p);
        const char *text = skip_blanks(p);
        if (*text != '#' && !at_line_end(text))
            return p;
        const char *end = text + std::strcspn(text, "\n");
        if (*end == '\0')
            return end;
        p = end + 1;
    }
}

const char *find_eol(const char *p, const char *last) {
    if (p > last)
        return nullptr;
    const void *newline = std::memchr(p, '\n', static_cast<std::size_t>(last + 1 - p));
    return newline ? static_cast<const char *>(newline) : last + 1;
}

const char *find_token(char c, const char *p, const char *eol) {
    if (p >= eol)
        return nullptr;
    return static_cast<const char *>(std::memchr(p, c, static_cast<std::size_t>(eol - p)));
}

const char *find_name(const char *first, const char *last, std::uint32_t *length,
                      name_char_t is_name_char) {
    if (!is_name_char)
        is_name_char = is_default_name_char;
    while (first <= last && is_blank(*first))
        ++first;
    const char *end = first;
    while (end <= last && is_name_char(*end))
        ++end;
    if (end == first)
        return nullptr;
    *length = static_cast<std::uint32_t>(end - first);
    return first;
}
