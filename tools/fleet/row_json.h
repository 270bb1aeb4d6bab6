// The values of rows, for the forms that hold JSON.
#pragma once

#include "host/report/json_writer.h"
#include "tools/fleet/database.h"

namespace fleet {

// Returns the value in the type that the database has it in.
host::Json value_json(const Statement &row, int column);

}  // namespace fleet
