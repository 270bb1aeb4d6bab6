// One run of the host, from its options to its report.
#pragma once

#include <exception>
#include <iosfwd>

#include "host/cli/options.h"

namespace host {

constexpr int EXIT_DONE = 0;
constexpr int EXIT_NOT_ALL_DONE = 1;  // a module could not be loaded or refused to start, or none
                                      // runs with --watch; a request is not reached with --strict;
                                      // on live hardware, also an access that failed, or an event
                                      // from a source without answers that failed
constexpr int EXIT_BAD_INPUT = 2;     // bad options or input, or a result that was not written
constexpr int EXIT_WOULD_CHANGE = 3;  // with --check only, as the next
constexpr int EXIT_FINDING = 4;       // nothing would change, and a finding is an error

// Logs the text of an exception that ends a run, and returns the exit status. The log must be open.
int refuse(const std::exception &error);

// Runs the host with these options and returns the exit status; throws for input that cannot be
// used. All input is read and checked before anything runs. `in` is the source of events with "-";
// reports go to `out`, messages to the log. One run at a time, because the exports that modules see
// answer for one machine.
int run(const Options &options, std::istream &in, std::ostream &out);

}  // namespace host
