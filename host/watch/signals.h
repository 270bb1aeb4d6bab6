// SIGTERM, SIGINT and SIGHUP must not end a server half way through its writes to hardware. SIGQUIT
// and signals that cannot be blocked still do.
#pragma once

#include <csignal>

namespace host {

// Blocks SIGTERM, SIGINT and SIGHUP (read them from a signalfd) and ignores SIGPIPE, so that writes
// fail with EPIPE. Call before any thread starts.
void block_signals();

// SIGTERM, SIGINT and SIGHUP, the set for a signalfd.
sigset_t blocked_signals();

// True while a blocked SIGTERM or SIGINT waits to be read.
bool termination_pending();

}  // namespace host
