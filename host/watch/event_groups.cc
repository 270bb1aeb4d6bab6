#include "host/watch/event_groups.h"

#include <algorithm>

namespace host {
namespace {

bool is_at_or_below(const bridge_rec *bridge, const bridge_rec *other) {
    while (bridge && bridge != other)
        bridge = bridge->parent;
    return bridge != nullptr;
}

}  // namespace

void EventGroups::add(bridge_rec *bridge, std::optional<RoutingId> id, Clock::time_point now) {
    Waiting &group = group_of(bridge, now);
    group.due = std::min(now + QUIET, group.latest);
    if (id)
        group.named.insert(*id);
}

std::optional<EventGroups::Clock::time_point> EventGroups::due() const {
    if (groups_.empty())
        return std::nullopt;
    return std::ranges::min_element(groups_, {}, [](const auto &group) { return group.second.due; })
        ->second.due;
}

std::optional<EventGroups::Group> EventGroups::take(Clock::time_point now) {
    const auto found =
        std::ranges::find_if(groups_, [&](const auto &group) { return group.second.due <= now; });
    if (found == groups_.end())
        return std::nullopt;
    Group group{.bridge = found->first, .named = std::move(found->second.named)};
    groups_.erase(found);
    return group;
}

EventGroups::Waiting &EventGroups::group_of(bridge_rec *bridge, Clock::time_point now) {
    for (auto &[other, group] : groups_)
        if (bridge == other || is_at_or_below(bridge, other))
            return group;
    Waiting merged{.due = {}, .latest = now + LONGEST, .named = {}};
    std::erase_if(groups_, [&](const auto &entry) {
        if (!is_at_or_below(entry.first, bridge))
            return false;
        merged.latest = std::min(merged.latest, entry.second.latest);
        merged.named.insert(entry.second.named.begin(), entry.second.named.end());
        return true;
    });
    return groups_[bridge] = std::move(merged);
}

}  // namespace host
