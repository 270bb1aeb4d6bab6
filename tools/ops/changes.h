// Shows which fields an operation has changed, in lspci's words.
#pragma once

#include <iosfwd>
#include <vector>

#include "host/machine/machine.h"

namespace ops {

// Values of the fields that operations set, function by function.
using FieldValues = std::vector<unsigned>;

FieldValues read_fields(const host::Machine &machine);

// Writes a line for each field that differs, or one line that says that nothing changed.
void write_changes(const host::Machine &machine, const FieldValues &before, std::ostream &out);

}  // namespace ops
