// Parts of parameter values. Characters are classified as ASCII, because the process's locale must
// not change what a file means.
#pragma once

#include <cstddef>

namespace enable_features {

constexpr bool is_digit(char c) {
    return c >= '0' && c <= '9';
}
constexpr bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
constexpr bool is_hex_digit(char c) {
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Returns true for letters, digits and "+-.:", the characters of a value whose feature has no rule
// of its own.
bool valid_param_val_char(char c);

// The number at the start of a text, and where it ends: at the text's start when there is no digit.
struct number_text_t {
    unsigned long number;
    const char *end;
};

// Reads the number at the start of `text` by the rules of read_number(), without a limit.
number_text_t scan_number(const char *text);

// Reads the number at the start of `text`: decimal, hexadecimal behind 0x, octal behind 0, with
// strtoul's rules for signs and overflow; what follows the digits is ignored. `*value` gets the low
// 32 bits. Returns false, with `*value` untouched, when there is no digit or the number is above
// `highest`.
bool read_number(const char *text, unsigned long highest, unsigned *value);

// Cuts `text` at a separator, as strtok_r() does, into the first `count` pieces; null where there
// are fewer. Returns the piece behind them, null when there is none.
char *cut_pieces(char *text, const char *separator, char **pieces, std::size_t count);

}  // namespace enable_features
