// Signals of a server that writes to hardware: those that ask it to end do not end it half way.
// SIGQUIT and what cannot be held do.
#pragma once

#include <csignal>

namespace host {

// From now on, SIGTERM, SIGINT and SIGHUP wait until somebody asks for them, and what cannot be
// written because nobody reads it any more fails without a signal. Before threads begin.
void hold_signals();

// Those that wait.
sigset_t held_signals();

// Whether SIGTERM or SIGINT waits.
bool is_told_to_end();

}  // namespace host
