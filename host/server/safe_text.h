// What a terminal would obey in text that comes from files.
#pragma once

#include <string_view>

namespace host {

// Bytes of the control character that a text begins with, one of ASCII's or, in UTF-8, U+0080 to
// U+009F; 0 when it begins with anything else.
constexpr std::size_t control_length(std::string_view text) {
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    if (text.empty())
        return 0;
    if (byte(0) < 0x20 || byte(0) == 0x7F)
        return 1;
    return text.size() > 1 && byte(0) == 0xC2 && byte(1) >= 0x80 && byte(1) < 0xA0 ? 2 : 0;
}

}  // namespace host
