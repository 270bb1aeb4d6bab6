// The host's records of functions that report events. platform/server.h declares the look-ups that
// modules use.
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>

#include "host/machine/machine.h"
#include "platform/server.h"

namespace host {

class FunctionRecords;

// A record is made when it is first asked for and kept as long as the machine is served, even when
// another function, with a record of its own, has come to the same address. A function that comes
// back unchanged finds its own record again. Safe on any thread.
class EventRecords {
public:
    EventRecords();
    ~EventRecords();
    EventRecords(const EventRecords &) = delete;
    EventRecords &operator=(const EventRecords &) = delete;

    // Throws std::bad_alloc.
    FunctionRecords &find(const Function &function);

private:
    std::mutex lock_;
    std::unordered_map<const Function *, std::unique_ptr<FunctionRecords>> by_function_;
};

// Returns the event-notification record of the function at `bdf`, with its MSI and MSI-X
// capabilities; null when there is no such function, or no memory. The host owns it as long as its
// machine is served.
event_notification_t *find_event_notification(bdf_t bdf);

}  // namespace host
