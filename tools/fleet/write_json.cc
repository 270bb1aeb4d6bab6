#include <ostream>
#include <string>

#include "host/report/json_writer.h"
#include "tools/fleet/sections.h"
#include "tools/fleet/write_forms.h"

namespace fleet {
namespace {

using host::Json;

Json value_json(const Statement &row, int column) {
    switch (row.type(column)) {
    case Statement::Type::NONE:
        return nullptr;
    case Statement::Type::INTEGER:
        return row.number(column);
    case Statement::Type::REAL:
        return row.real(column);
    case Statement::Type::TEXT:
        break;
    }
    return std::string(row.text(column));
}

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
