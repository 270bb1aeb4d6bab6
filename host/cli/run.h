// One run of the host, from its options to its report.
#pragma once

#include <exception>
#include <iosfwd>

#include "host/cli/options.h"

namespace host {

constexpr int EXIT_DONE = 0;
constexpr int EXIT_NOT_ALL_DONE = 1;  // a module could not be loaded or refused to start, or is
                                      // there to stay for; on live hardware, also an access that
                                      // failed, or an event that nobody was answered about
constexpr int EXIT_BAD_INPUT = 2;     // bad options or input, or a result that was not written
constexpr int EXIT_WOULD_CHANGE = 3;  // with --check only, as the next
constexpr int EXIT_FINDING = 4;       // nothing would change, and a finding is an error

// Logs what an exception says about a run, and gives the exit status. The log is open.
int refuse(const std::exception &error);

// Does what the options ask for and gives the exit status; throws for what it cannot use. All input
// is read and checked before anything runs. `in` is what events come from with "-"; reports go to
// `out`, messages to the log. One run at a time: the exports that modules see answer for one
// machine.
int run(const Options &options, std::istream &in, std::ostream &out);

}  // namespace host
