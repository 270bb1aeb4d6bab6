#include <ostream>

#include "host/base/safe_text.h"
#include "host/report/page_data.h"
#include "tools/fleet/page_tables.h"
#include "tools/fleet/row_json.h"
#include "tools/fleet/write_forms.h"

// The build puts the page between its two symbols.
extern "C" {
extern const char hoplar_fleet_page_begin[];
extern const char hoplar_fleet_page_end[];
}

namespace fleet {
namespace {

using host::Json;

Json columns_json(const Statement &rows) {
    Json columns = Json::array();
    for (int column = 0; column < rows.columns(); ++column)
        columns.push_back(rows.name(column));
    return columns;
}

// A browser obeys characters that turn the direction of a text, and shows nothing of others: text
// is made safe as for a terminal.
Json row_json(const Statement &row) {
    Json values = Json::array();
    for (int column = 0; column < row.columns(); ++column)
        if (row.type(column) == Statement::Type::TEXT)
            values.push_back(host::safe_text(row.text(column)));
        else
            values.push_back(value_json(row, column));
    return values;
}

void write_tables(std::ostream &out, Database &fleet) {
    host::JsonWriter json(out, host::JsonWriter::Form::ONE_LINE);
    json.open();
    for (const PageTable &table : PAGE_TABLES) {
        Statement rows = fleet.prepare(table.query);
        json.open(table.name, '{');
        json.value("columns", columns_json(rows));
        json.open("rows", '[');
        while (rows.step())
            json.value(nullptr, row_json(rows));
        json.close(']');
        json.close('}');
    }
    json.close('}');
}

}  // namespace

void write_html(std::ostream &out, Database &fleet) {
    host::write_page(out, {hoplar_fleet_page_begin, hoplar_fleet_page_end},
                     [&](std::ostream &json) { write_tables(json, fleet); });
}

}  // namespace fleet
