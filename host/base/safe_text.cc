#include "host/base/safe_text.h"

#include <algorithm>
#include <cstdint>

namespace host {
namespace {

// A form of two to four bytes. Its first byte is `lead` outside of `lead_bits`, which hold the
// highest bits of a character between `lowest` and `highest`.
struct Utf8Form {
    std::size_t length;
    unsigned char lead;
    unsigned char lead_bits;
    std::uint32_t lowest;
    std::uint32_t highest;
};

// `lowest` excludes longer forms of shorter characters, and U+0080 to U+009F.
constexpr Utf8Form UTF8_FORMS[] = {
    {.length = 2, .lead = 0xC0, .lead_bits = 0x1F, .lowest = 0xA0, .highest = 0x7FF},
    {.length = 3, .lead = 0xE0, .lead_bits = 0x0F, .lowest = 0x800, .highest = 0xFFFD},
    {.length = 4, .lead = 0xF0, .lead_bits = 0x07, .lowest = 0x10000, .highest = 0x10FFFF},
};

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

constexpr Range UNSAFE[] = {
    {.first = 0x2028, .last = 0x202E},  // line and paragraph separator; embeddings and overrides
    {.first = 0x2066, .last = 0x2069},  // isolates
    {.first = 0xD800, .last = 0xDFFF},  // surrogates, which UTF-8 does not encode
};

bool is_safe(std::uint32_t character) {
    return std::ranges::none_of(UNSAFE, [&](const Range &range) {
        return character >= range.first && character <= range.last;
    });
}

bool begins_with(std::string_view text, const Utf8Form &form) {
    const auto lead = static_cast<unsigned char>(text.front());
    if ((lead & ~form.lead_bits) != form.lead || text.size() < form.length)
        return false;
    std::uint32_t character = lead & form.lead_bits;
    for (const char c : text.substr(1, form.length - 1)) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte & 0xC0U) != 0x80U)
            return false;
        character = character << 6U | (byte & 0x3FU);
    }
    return character >= form.lowest && character <= form.highest && is_safe(character);
}

}  // namespace

std::size_t safe_length(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80)
        return first >= 0x20 && first != 0x7F ? 1 : 0;
    for (const Utf8Form &form : UTF8_FORMS)
        if (begins_with(text, form))
            return form.length;
    return 0;
}

std::string safe_text(std::string_view text) {
    constexpr const char *DIGITS = "0123456789abcdef";
    std::string safe;
    while (!text.empty()) {
        const std::size_t length = safe_length(text);
        const auto byte = static_cast<unsigned char>(text.front());
        if (length > 0)
            safe += text.substr(0, length);
        else
            safe.append("\\x").append({DIGITS[byte >> 4U], DIGITS[byte & 0xFU]});
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return safe;
}

}  // namespace host
