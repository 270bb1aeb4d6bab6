#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "host/base/safe_text.h"
#include "tools/fleet/sections.h"
#include "tools/fleet/write_forms.h"

namespace fleet {
namespace {

Statement rows_of(Database &fleet, const char *section) {
    return fleet.prepare(std::string("SELECT * FROM ") + section);
}

// A quotation mark is doubled, as RFC 4180 has it; line ends are no more there.
std::string cell(std::string_view text) {
    std::string safe = host::safe_text(text);
    if (safe.find_first_of(",\"") == std::string::npos)
        return safe;
    std::string quoted = "\"";
    for (const char c : safe)
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + "\"";
}

class Csv {
public:
    explicit Csv(std::ostream &out) : out_(out) {}

    void add_columns(const Statement &rows) {
        for (int column = 0; column < rows.columns(); ++column)
            if (std::ranges::find(columns_, rows.name(column)) == columns_.end())
                columns_.emplace_back(rows.name(column));
    }

    void write_header() {
        out_ << "section";
        for (const std::string &column : columns_)
            out_ << ',' << column;
        out_ << "\r\n";
    }

    void write_rows(const char *section, Statement &rows) {
        while (rows.step()) {
            std::vector<std::string> cells(columns_.size());
            for (int column = 0; column < rows.columns(); ++column)
                cells[place_of(rows.name(column))] = cell(rows.text(column));
            out_ << section;
            for (const std::string &text : cells)
                out_ << ',' << text;
            out_ << "\r\n";
        }
    }

private:
    std::size_t place_of(const char *name) const {
        return static_cast<std::size_t>(std::ranges::find(columns_, name) - columns_.begin());
    }

    std::ostream &out_;
    std::vector<std::string> columns_;
};

}  // namespace

void write_csv(std::ostream &out, Database &fleet) {
    std::vector<const char *> sections = {"totals"};
    sections.insert(sections.end(), SECTIONS.begin(), SECTIONS.end());
    Csv csv(out);
    for (const char *const section : sections)
        csv.add_columns(rows_of(fleet, section));
    csv.write_header();
    for (const char *const section : sections) {
        Statement rows = rows_of(fleet, section);
        csv.write_rows(section, rows);
    }
}

}  // namespace fleet
