// Adds up the reports of a fleet.
#pragma once

#include <iosfwd>

#include "tools/fleet/options.h"

namespace fleet {

constexpr int EXIT_ALL = 0;   // reports were read; where none could be, it is host::EXIT_BAD_INPUT
constexpr int EXIT_SOME = 1;  // were read, others are logged as errors

// Writes the result to `out` and returns the exit status. Throws where there is no result.
int run(const Options &options, std::ostream &out);

}  // namespace fleet
