// Kernel events of one place, gathered until it is time to look there.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <set>

#include "host/space/config_space.h"
#include "platform/bridge.h"

namespace host {

// Events come in bursts: a device has functions, a switch has ports. Those below one bridge are a
// group, under the highest bridge that is named. A group is due when nothing more has come for
// QUIET, and LONGEST after its first event where it never becomes quiet.
class EventGroups {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds QUIET{100};
    static constexpr std::chrono::seconds LONGEST{2};

    struct Group {
        bridge_rec *bridge;  // null: root buses that the machine does not have
        std::set<RoutingId> named;
    };

    // An event below the bridge, about `id` unless events were lost.
    void add(bridge_rec *bridge, std::optional<RoutingId> id, Clock::time_point now);

    // When the first group is due; empty when nothing waits.
    std::optional<Clock::time_point> due() const;

    // Hands out a group that is due; empty when none is.
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
