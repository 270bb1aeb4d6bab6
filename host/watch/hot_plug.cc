#include "host/watch/hot_plug.h"

#include <algorithm>

#include "host/base/address.h"
#include "host/base/log.h"
#include "host/exports/hooks.h"
#include "host/exports/payload_guard.h"
#include "host/exports/serve.h"
#include "platform/buscfg.h"

namespace host {
namespace {

// Returns the value that hooks get; 0 makes them use the host's record.
std::uint32_t bus_value(Machine &machine, const bridge_rec &bridge) {
    return static_cast<std::uint32_t>(std::max(machine.bridges().secondary_bus(bridge), 0));
}

std::string place_text(const bridge_rec &bridge) {
    return bridge.bridge_kind == BRIDGE_KIND_HOST ? "on bus " + bus_text(pci::bus_of(bridge.bdf))
                                                  : "below " + bdf_text(bridge.bdf);
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

HotPlug::HotPlug(Machine &machine, LiveFunctions &functions, Observer observer)
    : machine_(machine), functions_(functions), observer_(std::move(observer)) {}

void HotPlug::take(const KernelEvent &event) {
    groups_.add(known_bridge(event), event.id, Clock::now());
}

void HotPlug::take_all() {
    groups_.add(nullptr, std::nullopt, Clock::now());
    for (bridge_rec *root = machine_.bridges().top(); root; root = root->next_sibling)
        groups_.add(root, std::nullopt, Clock::now());
}

void HotPlug::settle(Clock::time_point now) {
    while (const auto group = groups_.take(now))
        bring_in(group->bridge, group->named);
}

// Returns the nearest bridge above the function that the machine has; null on a new root bus.
bridge_rec *HotPlug::known_bridge(const KernelEvent &event) const {
    for (const RoutingId id : event.bridges)
        if (bridge_rec *const bridge = machine_.bridges().by_bdf(id))
            return bridge;
    return machine_.bridges().above(event.bridges.empty() ? event.id : event.bridges.back());
}

// Follows the kernel's path, because a bridge may lead elsewhere than its bus numbers say.
bool HotPlug::is_below(RoutingId id, const bridge_rec *bridge) const {
    const std::vector<RoutingId> path = functions_.bridges_above(id);
    const RoutingId top = path.empty() ? id : path.back();
    if (!bridge)
        return !machine_.bridges().above(top);
    if (bridge->bridge_kind == BRIDGE_KIND_HOST)
        return pci::bus_of(top) == pci::bus_of(bridge->bdf);
    return std::ranges::find(path, static_cast<RoutingId>(bridge->bdf)) != path.end();
}

// Includes functions that were replaced or power-cycled at the same address.
std::vector<RoutingId> HotPlug::gone_below(const bridge_rec &bridge,
                                           const std::set<RoutingId> &named) const {
    std::set<RoutingId> candidates = named;
    for (const Function *function : machine_.below(bridge))
        candidates.insert(function->id());
    std::vector<RoutingId> gone;
    for (const RoutingId id : candidates)
        if (machine_.find(id) && (!functions_.has(id) || functions_.is_another(id)))
            gone.push_back(id);
    return gone;
}

// Excludes functions that do not answer, and virtual functions, which modules do not see.
std::vector<RoutingId> HotPlug::come_below(const bridge_rec *bridge) const {
    std::vector<RoutingId> come;
    for (const RoutingId id : functions_.functions()) {
        if (machine_.find(id) || functions_.is_virtual(id) || !is_below(id, bridge))
            continue;
        functions_.forget(id);
        if (functions_.answers(id))
            come.push_back(id);
    }
    return come;
}

// Returns the bridge, those above and those below it: the kernel gives other bus numbers to no
// others.
std::vector<RoutingId> HotPlug::bridges_around(const bridge_rec &bridge) const {
    std::vector<RoutingId> around;
    for (const bridge_rec *each = &bridge; each->parent; each = each->parent)
        around.push_back(pci::routing_id_of(each->bdf));
    for (const Function *function : machine_.below(bridge))
        if (function->is_bridge())
            around.push_back(function->id());
    return around;
}

void HotPlug::bring_in(bridge_rec *bridge, const std::set<RoutingId> &named) {
    machine_.space().look_again();
    if (!bridge) {
        insert_root_buses(come_below(nullptr));
        return;
    }
    if (const auto gone = gone_below(*bridge, named); !gone.empty())
        remove(bridge, gone);
    if (const auto come = come_below(bridge); !come.empty())
        insert(bridge, come);
}

void HotPlug::remove(bridge_rec *bridge, const std::vector<RoutingId> &gone) {
    log_info("removed " + place_text(*bridge) + ": " + list_text(gone));
    const std::uint32_t bus = bus_value(machine_, *bridge);
    call_bridge_hooks(BUSCFG_HOOK_PRE_REMOVAL, bridge, bus, PCI_OK);
    machine_.update(gone, {}, bridges_around(*bridge));
    for (const RoutingId id : gone) {
        served()->msix_tables.forget(id);
        functions_.forget(id);
    }
    call_bridge_hooks(BUSCFG_HOOK_POST_REMOVAL, bridge, bus, PCI_OK);
}

void HotPlug::insert(bridge_rec *bridge, const std::vector<RoutingId> &come) {
    call_bridge_hooks(BUSCFG_HOOK_PRE_INSERTION, bridge, bus_value(machine_, *bridge), PCI_OK);
    machine_.update({}, come, bridges_around(*bridge));
    observer_.inserted(come);
    admit_arrivals(come);
    call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, bridge, bus_value(machine_, *bridge), PCI_OK);
    report_inserted(place_text(*bridge), come);
    report_payload_mismatches(come);
}

// Called after the hooks, because it tells what they have changed: the module's own warning says
// only that it supports no hot-plug.
void HotPlug::report_inserted(const std::string &place, const std::vector<RoutingId> &come) const {
    log_info("inserted " + place + ": " + list_text(come) + "; " + observer_.outcome(come));
}

// There is no hook before this insertion, because no bridge exists yet that hooks could be given.
void HotPlug::insert_root_buses(const std::vector<RoutingId> &come) {
    if (come.empty())
        return;
    machine_.update({}, come);
    observer_.inserted(come);
    admit_arrivals(come);
    std::set<bridge_rec *> roots;
    for (const RoutingId id : come)
        if (bridge_rec *above = machine_.bridges().above(id); above && !above->parent)
            roots.insert(above);
    for (bridge_rec *root : roots)
        call_bridge_hooks(BUSCFG_HOOK_POST_INSERTION, root, bus_value(machine_, *root), PCI_OK);
    report_inserted("on new root buses", come);
    report_payload_mismatches(come);
}

}  // namespace host
