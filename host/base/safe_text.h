// Makes text from files, devices and other users safe to send to a terminal.
#pragma once

#include <string>
#include <string_view>

namespace host {

// Returns the number of bytes of the character that `text` begins with, if that character can be
// shown; 0 if the first byte cannot: it is a control character (of ASCII or U+0080 to U+009F),
// belongs to a character that breaks lines or changes the direction of what follows (U+2028 to
// U+202E, U+2066 to U+2069), or is not UTF-8. U+FFFE and U+FFFF, which XML does not allow, cannot
// be shown either.
std::size_t safe_length(std::string_view text);

// Returns the text with each byte that cannot be shown as \xNN. The result is one line of valid
// UTF-8 without control characters; safe text stays as it is.
std::string safe_text(std::string_view text);

}  // namespace host
