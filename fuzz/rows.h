// Takes an input of rows (machines.h) apart, and puts it together again.
#pragma once

#include <algorithm>
#include <array>
#include <vector>

#include "fuzz/machines.h"

namespace host::fuzz {

using Row = std::array<std::uint8_t, ROW>;

inline constexpr Row TEXT = {'T'};

struct Rows {
    std::vector<Row> rows;  // without that of the text
    std::vector<std::uint8_t> text;
};

inline Rows split_rows(Input input) {
    Rows parts;
    for (; input.size() >= ROW; input = input.subspan(ROW)) {
        if (input[0] == TEXT[0]) {
            parts.text.assign(input.begin() + ROW, input.end());
            break;
        }
        std::ranges::copy(input.first(ROW), parts.rows.emplace_back().begin());
    }
    return parts;
}

inline std::size_t join(const Rows &parts, std::span<std::uint8_t> out) {
    std::size_t size = 0;
    const auto add = [&](const auto &bytes, std::size_t reserve) {
        if (size + bytes.size() + reserve > out.size())
            return false;
        std::ranges::copy(bytes, out.begin() + static_cast<std::ptrdiff_t>(size));
        size += bytes.size();
        return true;
    };
    const std::size_t text_size = parts.text.empty() ? 0 : parts.text.size() + ROW;
    const bool has_room = text_size < out.size();
    for (const Row &row : parts.rows)
        add(row, has_room ? text_size : 0);
    if (text_size > 0 && has_room && add(TEXT, 0))
        add(parts.text, 0);
    return size;
}

}  // namespace host::fuzz
