#include "tools/fleet/row_json.h"

#include <string>

namespace fleet {

host::Json value_json(const Statement &row, int column) {
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

}  // namespace fleet
