#include <ostream>
#include <string>

#include "tools/fleet/row_json.h"
#include "tools/fleet/sections.h"
#include "tools/fleet/write_forms.h"

namespace fleet {
namespace {

using host::Json;

Json row_json(const Statement &row) {
    Json json = Json::object();
    for (int column = 0; column < row.columns(); ++column)
        json[row.name(column)] = value_json(row, column);
    return json;
}

}  // namespace

void write_json(std::ostream &out, Database &fleet) {
    host::JsonWriter json(out, host::JsonWriter::Form::LINES);
    json.open();
    json.value("format", 1);
    Statement totals = fleet.prepare("SELECT * FROM totals");
    if (totals.step())
        json.value("totals", row_json(totals));
    for (const char *const section : SECTIONS) {
        Statement rows = fleet.prepare(std::string("SELECT * FROM ") + section);
        json.open(section, '[');
        while (rows.step())
            json.value(nullptr, row_json(rows));
        json.close(']');
    }
    json.close('}');
    out << '\n';
}

}  // namespace fleet
