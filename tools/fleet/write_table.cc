#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "host/base/columns.h"
#include "host/base/safe_text.h"
#include "tools/fleet/sections.h"
#include "tools/fleet/write_forms.h"

namespace fleet {
namespace {

constexpr std::size_t WIDTH = 80;
constexpr std::size_t INDENT = 2;

using Row = std::vector<std::string>;

void write_sentences(std::ostream &out, Statement &rows) {
    do {
        for (const char c : host::wrapped(host::safe_text(rows.text(0)), WIDTH - INDENT))
            out << (c == '\n' ? "\n" + std::string(INDENT, ' ') : std::string(1, c));
        out << '\n';
    } while (rows.step());
}

Row row_of(const Statement &rows) {
    Row row;
    for (int column = 0; column < rows.columns(); ++column)
        row.push_back(
            rows.type(column) == Statement::Type::NONE ? "-" : host::safe_text(rows.text(column)));
    return row;
}

// Numbers stand below each other's ends, texts below each other's beginnings.
void write_row(std::ostream &out, const Row &row, const std::vector<std::size_t> &widths,
               const std::vector<bool> &is_number) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
        const std::string blanks(widths[i] - host::display_width(row[i]), ' ');
        line += is_number[i] ? blanks + row[i] : row[i] + blanks;
        line += "  ";
    }
    out << line.substr(0, line.find_last_not_of(' ') + 1) << '\n';
}

// Fits the last column into the width of a line. Device names of one vendor differ at their end.
void shorten_last(std::vector<Row> &table, std::vector<std::size_t> &widths) {
    std::size_t others = 0;
    for (std::size_t i = 0; i + 1 < widths.size(); ++i)
        others += widths[i] + 2;
    const std::size_t left = others < WIDTH ? WIDTH - others : 1;
    for (Row &row : table)
        row.back() = host::last_words(row.back(), left);
    widths.back() = std::min(widths.back(), left);
}

// All rows have to be there before the width of a column is known: a row a device model, or a code.
void write_columns(std::ostream &out, Statement &rows) {
    std::vector<Row> table(1);
    std::vector<bool> is_number;
    for (int column = 0; column < rows.columns(); ++column) {
        table[0].emplace_back(rows.name(column));
        is_number.push_back(rows.type(column) != Statement::Type::TEXT);
    }
    do
        table.push_back(row_of(rows));
    while (rows.step());
    std::vector<std::size_t> widths(table[0].size());
    for (const Row &row : table)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], host::display_width(row[i]));
    shorten_last(table, widths);
    for (const Row &row : table)
        write_row(out, row, widths, is_number);
}

}  // namespace

void write_table(std::ostream &out, Database &fleet) {
    for (const Passage &passage : PASSAGES) {
        Statement rows = fleet.prepare(passage.query);
        if (!rows.step())
            continue;
        if (passage.title != nullptr)
            out << '\n' << passage.title << ":\n";
        if (rows.columns() == 1)
            write_sentences(out, rows);
        else
            write_columns(out, rows);
    }
}

}  // namespace fleet
