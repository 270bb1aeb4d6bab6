// The host's records of functions that report events. What modules look up of them is declared in
// platform/server.h.
#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>

#include "host/machine/machine.h"
#include "platform/server.h"

namespace host {

class FunctionRecords;

// Records are made when they are first asked for and kept as long as the machine is served, also
// when another function, with records of its own, has come to the same place; a function that comes
// back as it was finds its own again. Any thread.
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

// Event-notification record of the function at `bdf`, with its MSI and MSI-X capabilities; null
// when there is no such function, or no memory. Belongs to the host, as long as its machine is
// served.
event_notification_t *find_event_notification(bdf_t bdf);

}  // namespace host
