// Keeps a served machine in step with the functions that the kernel adds and removes.
#pragma once

#include <functional>
#include <set>

#include "host/machine/machine.h"
#include "host/space/live_functions.h"
#include "host/watch/event_groups.h"
#include "host/watch/kernel_events.h"

namespace host {

// Events are gathered below the highest bridge that is known. When a group of them is due, the
// machine is compared with the kernel's functions: those that are gone leave it and those that have
// come enter it, with the hooks around both. The content of an event is not relied on, so an event
// too many does nothing. All work is done on the calling thread.
class HotPlug {
public:
    using Clock = EventGroups::Clock;

    struct Observer {
        // Functions have entered the machine; the hooks come next.
        std::function<void(const std::vector<RoutingId> &come)> inserted;
        // Describes what hooks have changed on these functions since, for the message about the
        // insertion.
        std::function<std::string(const std::vector<RoutingId> &come)> outcome;
    };

    HotPlug(Machine &machine, LiveFunctions &functions, Observer observer);

    void take(const KernelEvent &event);

    // Compares everything, because events were lost.
    void take_all();

    // Returns when settle() has work to do; nullopt when nothing waits.
    std::optional<Clock::time_point> due() const { return groups_.due(); }

    // Compares the groups that are due, and applies the differences.
    void settle(Clock::time_point now);

private:
    bridge_rec *known_bridge(const KernelEvent &event) const;
    // A null bridge stands for root buses that the machine does not have.
    bool is_below(RoutingId id, const bridge_rec *bridge) const;
    std::vector<RoutingId> gone_below(const bridge_rec &bridge,
                                      const std::set<RoutingId> &named) const;
    std::vector<RoutingId> come_below(const bridge_rec *bridge) const;
    std::vector<RoutingId> bridges_around(const bridge_rec &bridge) const;
    void bring_in(bridge_rec *bridge, const std::set<RoutingId> &named);
    void remove(bridge_rec *bridge, const std::vector<RoutingId> &gone);
    void insert(bridge_rec *bridge, const std::vector<RoutingId> &come);
    void report_inserted(const std::string &place, const std::vector<RoutingId> &come) const;
    void insert_root_buses(const std::vector<RoutingId> &come);

    Machine &machine_;
    LiveFunctions &functions_;
    Observer observer_;
    EventGroups groups_;
};

}  // namespace host
