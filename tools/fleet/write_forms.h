// Writes the result, row by row as the database has it.
#pragma once

#include <iosfwd>

#include "tools/fleet/database.h"

namespace fleet {

// For people: up to 80 columns, wherever words allow it.
void write_table(std::ostream &out, Database &fleet);

// For programs. CSV has one table for all sections, and says in its first column which one a row is
// of; the other columns are those of all sections.
void write_json(std::ostream &out, Database &fleet);
void write_csv(std::ostream &out, Database &fleet);

// For a browser: one file, which needs no other and no network.
void write_html(std::ostream &out, Database &fleet);

}  // namespace fleet
