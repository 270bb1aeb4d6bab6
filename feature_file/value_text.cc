#include "feature_file/value_text.h"

#include <cstdlib>
#include <cstring>

namespace enable_features {

bool valid_param_val_char(char c) {
    return is_letter(c) || is_digit(c) || c == '+' || c == '-' || c == '.' || c == ':';
}

namespace {

// Base 0 lets strtoul choose. Newer C libraries then also take 0b for binary, which here is an
// octal 0 with text behind it, so base 8 is given for that prefix.
int base_of(const char *text) {
    if (*text == '+' || *text == '-')
        text++;
    return text[0] == '0' && (text[1] == 'b' || text[1] == 'B') ? 8 : 0;
}

}  // namespace

number_text_t scan_number(const char *text) {
    char *end = nullptr;
    const unsigned long number = std::strtoul(text, &end, base_of(text));
    return {number, end};
}

bool read_number(const char *text, unsigned long highest, unsigned *value) {
    const auto [number, end] = scan_number(text);
    if (end == text || number > highest)
        return false;
    *value = static_cast<unsigned>(number);
    return true;
}

char *cut_pieces(char *text, const char *separator, char **pieces, std::size_t count) {
    char *rest = nullptr;
    char *piece = strtok_r(text, separator, &rest);
    for (std::size_t i = 0; i < count; ++i) {
        pieces[i] = piece;
        if (piece != nullptr)
            piece = strtok_r(nullptr, separator, &rest);
    }
    return piece;
}

}  // namespace enable_features
