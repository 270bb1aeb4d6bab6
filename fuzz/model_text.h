// How the model reads the values of feature files.
#pragma once

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace host::fuzz::model {

// Text is cut as strtok does: no piece is empty.
inline std::vector<std::string> cut(const std::string &text, char separator) {
    std::vector<std::string> pieces;
    std::string piece;
    for (const char c : text + separator)
        if (c != separator)
            piece += c;
        else if (!piece.empty())
            pieces.push_back(std::exchange(piece, ""));
    return pieces;
}

inline std::string lower(std::string text) {
    for (char &c : text)
        c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
    return text;
}

// Reads a number as C writes it, and passes over what stands behind it.
inline std::optional<unsigned long> number_in(const std::string &text, unsigned long highest) {
    char *end = nullptr;
    const unsigned long value = std::strtoul(text.c_str(), &end, 0);
    if (end == text.c_str() || value > highest)
        return std::nullopt;
    return value;
}

}  // namespace host::fuzz::model
