#include "host/watch/signals.h"

#include <initializer_list>

namespace host {

void block_signals() {
    const sigset_t set = blocked_signals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
}

sigset_t blocked_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP})
        sigaddset(&set, signal);
    return set;
}

bool termination_pending() {
    sigset_t waiting;
    sigemptyset(&waiting);
    sigpending(&waiting);
    return sigismember(&waiting, SIGTERM) == 1 || sigismember(&waiting, SIGINT) == 1;
}

}  // namespace host
