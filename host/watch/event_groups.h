// Gathers kernel events below one bridge until the functions there should be compared.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>

#include "host/space/config_space.h"
#include "platform/bridge.h"

namespace host {

// Events come in bursts: a device has functions, a switch has ports. Events below one bridge form a
// group, under the highest bridge among them. A group is due when no event has come for QUIET, or
// LONGEST after its first event.
class EventGroups {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds QUIET{100};
    static constexpr std::chrono::seconds LONGEST{2};

    struct Group {
        bridge_rec *bridge;  // null: root buses that the machine does not have
        std::set<RoutingId> named;
    };

    // Adds an event below the bridge, about `id` unless events were lost.
    void add(bridge_rec *bridge, std::optional<RoutingId> id, Clock::time_point now);

    // Returns when the first group is due; nullopt when none waits.
    std::optional<Clock::time_point> due() const;

    // Removes and returns a group that is due; nullopt when none is.
    std::optional<Group> take(Clock::time_point now);

private:
    struct Waiting {
        Clock::time_point due;
        Clock::time_point latest;
        std::set<RoutingId> named;
    };

    Waiting &group_of(bridge_rec *bridge, Clock::time_point now);

    std::map<bridge_rec *, Waiting> groups_;
};

}  // namespace host
