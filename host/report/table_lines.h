// The lines of the table, and how they are laid out in columns.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "host/report/report.h"

namespace host {

// The columns in front of the name.
enum Column : std::size_t { PLACE, TYPE, PAYLOAD, GEN, CHK, COLUMNS };

struct TableLine {
    const FunctionReport *row = nullptr;  // null: the headings of columns, or of a hierarchy
    std::array<std::string, COLUMNS> cells{};
    std::string heading{};  // in place of all cells, or of the name
};

struct TableLines {
    std::vector<TableLine> lines;
    std::array<std::size_t, COLUMNS> widths{};
    std::size_t name_width = 0;  // 0: names are as long as they are
};

// Lists the functions that are shown depth first, with the branches that lead to each, below the
// headings of their hierarchies. `width` is that of the terminal, 0 without limit: where it leaves
// too little for names, types and headings are shortened, and the buses behind bridges left out.
TableLines table_lines(const Report &report, std::size_t width);

std::string line_text(const TableLines &table, const TableLine &line);

}  // namespace host
