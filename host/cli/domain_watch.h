// Stays above the servers of several domains, which follow what comes and goes.
#pragma once

#include <vector>

#include "host/cli/domain_server.h"
#include "host/watch/control_socket.h"

namespace host {

struct WatchedDomain {
    unsigned number;
    DomainServer *server;  // whose start-up is done
};

// Hands lines from the control socket, where there is one, and from standard input, where that is
// wanted, to the domains that they concern, until SIGTERM or SIGINT, or until no server is left.
// Tells the service manager when it begins and when it ends. The servers have been told to end
// then. Returns false when an event of standard input failed, or a server ended by itself.
bool watch_domains(const std::vector<WatchedDomain> &domains, const ControlSocket *socket,
                   bool reads_standard_input);

}  // namespace host
