#include "host/live/hot_plug.h"

#include <algorithm>

#include "host/machine/bdf_text.h"
#include "host/server/hooks.h"
#include "host/server/progress.h"
#include "platform/buscfg.h"

namespace host {
namespace {

bool is_at_or_below(const bridge_rec *bridge, const bridge_rec *other) {
    while (bridge && bridge != other)
        bridge = bridge->parent;
    return bridge != nullptr;
}

// What hooks are told; 0 leaves it to the host's record.
std::uint32_t bus_value(Machine &machine, const bridge_rec &bridge) {
    return static_cast<std::uint32_t>(std::max(machine.bridges().secondary_bus(bridge), 0));
}

std::string list_text(const std::vector<RoutingId> &ids) {
    std::string text;
    for (const RoutingId id : ids) {
        if (!text.empty())
            text += ' ';
        text += bdf_text(id);
    }
    return text;
}

}  // namespace

HotPlug::HotPlug(Machine &machine, LiveSpace &space) : machine_(machine), space_(space) {}

void HotPlug::take(const KernelEvent &event) {
    bridge_rec *const bridge = known_bridge(event);
    if (!bridge) {
        log_warning(bdf_text(event.id) + (event.added ? " added" : " removed") +
                    " on a bus that this server does not know");
        return;
    }
    Group &group = group_of(bridge);
    group.due = Clock::now() + QUIET;
    if (event.added)
        group.added.insert(event.id);
}

void HotPlug::take_all() {
    for (bridge_rec *root = machine_.bridges().top(); root; root = root->next_sibling)
        group_of(root).due = Clock::now() + QUIET;
}

std::optional<HotPlug::Clock::time_point> HotPlug::due() const {
    if (groups_.empty())
        return std::nullopt;
    return std::ranges::min_element(groups_, {}, [](const auto &group) { return group.second.due; })
        ->second.due;
}

void HotPlug::settle(Clock::time_point now) {
    for (auto group = groups_.begin(); group != groups_.end();) {
        if (group->second.due > now) {
            ++group;
            continue;
        }
        const auto [bridge, settled] = *group;
        group = groups_.erase(group);
        bring_in(bridge, settled.added);
    }
}

// The nearest bridge above the function that the machine has.
bridge_rec *HotPlug::known_bridge(const KernelEvent &event) const {
    for (const RoutingId id : event.bridges)
        if (bridge_rec *const bridge = machine_.bridges().by_bdf(id))
            return bridge;
    return machine_.bridges().above(event.id);
}

// One group for what is above and below each other, under the higher bridge.
HotPlug::Group &HotPlug::group_of(bridge_rec *bridge) {
    for (auto &[other, group] : groups_)
        if (is_at_or_below(bridge, other))
            return group;
    Group merged{};
    std::erase_if(groups_, [&](const auto &entry) {
        if (!is_at_or_below(entry.first, bridge))
            return false;
        merged.added.insert(entry.second.added.begin(), entry.second.added.end());
        return true;
    });
    return groups_[bridge] = std::move(merged);
}

// As the kernel has them now. On a root bus: all behind that bus.
std::set<RoutingId> HotPlug::present_below(const bridge_rec &bridge) const {
    std::set<RoutingId> present;
    for (const RoutingId id : space_.functions()) {
        std::vector<RoutingId> path = space_.sysfs().bridges_above(id);
        const bool is_below =
            bridge.bridge_kind == BRIDGE_KIND_HOST
                ? (path.empty() ? id : path.back()) >> 8 == bridge.bdf >> 8
                : std::ranges::find(path, static_cast<RoutingId>(bridge.bdf)) != path.end();
        if (is_below)
            present.insert(id);
    }
    return present;
}

std::set<RoutingId> HotPlug::known_below(const bridge_rec &bridge) const {
    std::set<RoutingId> known;
    for (const Function *function : machine_.below(bridge))
        if (machine_.reachable(*function))
            known.insert(function->id());
    return known;
}

// A function that was added while it was known is another one, or the same after power was off.
void HotPlug::bring_in(bridge_rec *bridge, const std::set<RoutingId> &added) {
    const std::set<RoutingId> known = known_below(*bridge);
    const std::set<RoutingId> present = present_below(*bridge);
    std::vector<RoutingId> gone;
    std::vector<RoutingId> come;
    for (const RoutingId id : known)
        if (!present.contains(id) || added.contains(id))
            gone.push_back(id);
    for (const RoutingId id : present)
        if (!known.contains(id) || added.contains(id))
            come.push_back(id);
    if (!gone.empty())
        remove(bridge, gone);
    if (!come.empty())
        insert(bridge, come);
}

void HotPlug::remove(bridge_rec *bridge, const std::vector<RoutingId> &gone) {
    log_progress("removed below " + bdf_text(bridge->bdf) + ": " + list_text(gone));
    const std::uint32_t bus = bus_value(machine_, *bridge);
    call_bridge_hooks(BUSCFG_HOOK_PRE_REMOVAL, bridge, bus, PCI_OK);
    machine_.update(gone, {});
    for (const RoutingId id : gone)
        space_.forget(id);
    call_bridge_hooks(BUSCFG_HOOK_POST_REMOVAL, bridge, bus, PCI_OK);
}

void HotPlug::insert(bridge_rec *bridge, const std::vector<RoutingId> &come) {
    log_progress("inserted below " + bdf_text(bridge->bdf) + ": " + list_text(come));
    const std::uint32_t bus = bus_value(machine_, *bridge);
    call_bridge_hooks(BUSCFG_HOOK_PRE_INSERTION, bridge, bus, PCI_OK);
    for (const RoutingId id : come)
        space_.forget(id);
    machine_.update({}, come);
    call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, bridge, bus_value(machine_, *bridge), PCI_OK);
}

}  // namespace host
