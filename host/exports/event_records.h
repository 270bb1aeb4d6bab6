// The host's records of functions that report events. What modules look up of them is declared in
// platform/server.h.
#pragma once

#include "platform/server.h"

namespace host {

// Event-notification record of the function at `bdf`, with its MSI and MSI-X capabilities; null
// when there is no such function, or no memory. Belongs to the host; valid until serve() is called.
event_notification_t *find_event_notification(bdf_t bdf);

}  // namespace host
