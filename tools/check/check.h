// Checks feature files, and the arguments of the module that name them.
#pragma once

#include <iosfwd>

#include "tools/check/options.h"

namespace check {

constexpr int EXIT_CLEAN = 0;    // no errors and no warnings; a file that cannot be used has
                                 // host::EXIT_BAD_INPUT
constexpr int EXIT_REMARKS = 1;  // some

// Writes the remarks to `out` and returns the exit status. All files are checked, also behind one
// that cannot be read, which is logged as an error. A dump is read from `in` where the options say
// so. Throws for options, a machine and a configuration that cannot be used.
int run(const Options &options, std::istream &in, std::ostream &out);

}  // namespace check
