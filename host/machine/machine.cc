#include "host/machine/machine.h"

#include <algorithm>
#include <unordered_map>

#include "host/machine/bus_layout.h"
#include "host/machine/virtual_functions.h"
#include "platform/capability.h"
#include "platform/pci_regs.h"

namespace host {

Machine::Machine(ConfigSpace &space, Warn warn) : space_(space), warn_(std::move(warn)) {
    std::vector<std::unique_ptr<Function>> fresh = read(space.functions());
    tell_virtual(fresh);
    choose_forms(fresh);
    publish(std::move(fresh));
    const std::vector<const Function *> all = functions();
    std::vector<std::string> warnings;
    bridges_ = std::make_unique<BridgeTree>(all, lay_out_buses(all, &warnings));
    give_warnings(warnings);
}

std::vector<const Function *> Machine::functions() const {
    std::vector<const Function *> all;
    places_.visit_all([&](RoutingId, const Place &place) {
        if (place.function)
            all.push_back(place.function);
    });
    return all;
}

const Function *Machine::known(RoutingId id) const {
    const Place *place = places_.find(id);
    return place ? place->function.load() : nullptr;
}

bool Machine::reachable(const Function &function) const {
    return find(function.bdf) != nullptr;
}

std::uint64_t Machine::generation() const {
    return generation_;
}

const BridgeTree &Machine::bridges() const {
    return *bridges_;
}

BridgeTree &Machine::bridges() {
    return *bridges_;
}

void Machine::update(std::span<const RoutingId> gone, std::span<const RoutingId> come) {
    std::vector<RoutingId> all;
    for (const Function *function : functions())
        all.push_back(function->id());
    update(gone, come, all);
}

void Machine::update(std::span<const RoutingId> gone, std::span<const RoutingId> come,
                     std::span<const RoutingId> renumbered) {
    const std::scoped_lock guard(change_lock_);
    for (const RoutingId id : gone)
        if (Place *place = places_.find(id))
            place->reachable = false;
    std::vector<RoutingId> changed = with_other_numbers(renumbered);
    changed.insert(changed.end(), come.begin(), come.end());
    std::vector<std::unique_ptr<Function>> fresh = read(changed);
    tell_virtual(fresh);
    std::erase_if(fresh, [](const auto &function) { return !function->answers; });
    choose_forms(fresh);
    publish(std::move(fresh));
    const std::vector<const Function *> all = reachable_with({});
    std::vector<std::string> warnings;
    bridges_->update(all, lay_out_buses(all, &warnings));
    ++generation_;
    give_warnings(warnings);
}

void Machine::remove(bridge_rec &bridge) {
    const std::scoped_lock guard(change_lock_);
    set_reachable(bridge, false);
    bridges_->detach(bridge);
    ++generation_;  // last, so that a list made meanwhile is made again
}

void Machine::insert(bridge_rec &bridge) {
    const std::scoped_lock guard(change_lock_);
    if (!is_there(bridge))
        return;
    set_reachable(bridge, true);
    bridges_->attach(bridge);
    ++generation_;
}

std::vector<const Function *> Machine::below(const bridge_rec &bridge) const {
    const auto buses = bridges_->buses_below(bridge);
    std::vector<const Function *> found;
    for (unsigned bus = 0; bus < BUSES; ++bus) {
        if (!buses[bus])
            continue;
        places_.visit_bus(bus, [&](RoutingId, const Place &place) {
            if (place.function)
                found.push_back(place.function);
        });
    }
    return found;
}

std::vector<std::unique_ptr<Function>> Machine::read(std::span<const RoutingId> ids) {
    std::vector<std::unique_ptr<Function>> fresh;
    for (const RoutingId id : ids)
        fresh.push_back(std::make_unique<Function>(read_function(space_, id)));
    return fresh;
}

// Returns the reachable ones of these bridges whose bus numbers differ from those last read.
std::vector<RoutingId> Machine::with_other_numbers(std::span<const RoutingId> bridges) const {
    std::vector<RoutingId> found;
    for (const RoutingId id : bridges) {
        const Function *const function = find(id);
        std::uint32_t numbers = 0;
        if (!function || !function->is_bridge() ||
            space_.read(function->id(), pci::BUS_NUMBERS, 4, numbers) != PCI_OK)
            continue;
        if (pci::get(numbers, pci::BUS_NUMBERS_SECONDARY) != function->secondary ||
            pci::get(numbers, pci::BUS_NUMBERS_SUBORDINATE) != function->subordinate)
            found.push_back(function->id());
    }
    return found;
}

// Virtual functions are hidden from modules, even those with a vendor in their own registers:
// Max_Payload_Size is reserved in them, so a write would fail and the module would take the size
// back along the whole path. Virtual functions have Header Layout 0; a function with another layout
// is none, whatever an SR-IOV capability says.
void Machine::tell_virtual(std::span<const std::unique_ptr<Function>> fresh) {
    const auto all = find_virtual_functions(space_, possible_physical(fresh));
    for (const auto &function : fresh) {
        const auto found = all.find(function->id());
        if (found == all.end() || function->header_type != 0)
            continue;
        std::uint32_t revision = 0;
        space_.recall(function->id(), pci::CLASS_REVISION, 4, Changes::NEVER, revision);
        Function virtual_function{};
        virtual_function.bdf = function->id();
        virtual_function.vendor = found->second.vendor;
        virtual_function.device = found->second.device;
        virtual_function.class_code = pci::get(revision, pci::CLASS_REVISION_CLASS_CODE);
        virtual_function.physical = found->second.physical;
        *function = std::move(virtual_function);
    }
}

// Returns the functions that may be the physical ones of new functions: these and those below the
// same bridge, through which the virtual functions' bus is reached too.
std::vector<const Function *>
Machine::possible_physical(std::span<const std::unique_ptr<Function>> fresh) const {
    std::vector<const Function *> all = reachable_with(fresh);
    if (!bridges_)
        return all;
    std::set<const bridge_rec *> above;
    std::set<const Function *> own;
    for (const auto &function : fresh) {
        above.insert(bridges_->above(function->bdf));
        own.insert(function.get());
    }
    std::erase_if(all, [&](const Function *function) {
        return !own.contains(function) && !above.contains(bridges_->above(function->bdf));
    });
    return all;
}

// Fills in what new functions cannot tell of themselves: whether they are addressed in ARI form,
// which depends on the bridge and on function 0, and whether their device has more functions.
void Machine::choose_forms(std::span<const std::unique_ptr<Function>> fresh) {
    const std::vector<const Function *> all = reachable_with(fresh);
    const BusLayout layout = lay_out_buses(all, nullptr);
    const auto answering = [&](bdf_t bdf) -> const Function * {
        const auto found =
            std::ranges::lower_bound(all, pci::routing_id_of(bdf), {}, &Function::id);
        const bool is_there = found != all.end() && (*found)->id() == pci::routing_id_of(bdf);
        return is_there && (*found)->answers ? *found : nullptr;
    };
    std::set<unsigned> buses;
    for (const auto &function : fresh)
        buses.insert(pci::bus_of(function->bdf));
    std::array<bool, BUSES> ari{};
    for (const unsigned bus : buses) {
        const Function *bridge = layout.by_secondary[bus];
        const Function *function_0 = bridge ? answering(pci::plain_bdf(bus, 0, 0)) : nullptr;
        ari[bus] =
            function_0 && function_0->ext_cap(EXT_CAPID_ARI) && forwards_ari(space_, *bridge);
    }
    for (const auto &function : fresh) {
        if (!function->answers)
            continue;
        if (ari[pci::bus_of(function->bdf)])
            function->bdf |= BDF_ARI_FLAG;
        const Function *function_0 = answering(pci::function_0_of(function->bdf));
        function->multi_function = function_0 && function_0->multi_function;
    }
}

// A function that comes back unchanged gets its old record again, so that a machine does not grow
// with every insertion.
void Machine::publish(std::vector<std::unique_ptr<Function>> fresh) {
    std::unordered_multimap<bdf_t, const Function *> old;
    for (const auto &record : records_)
        old.emplace(record->bdf, record.get());
    for (std::unique_ptr<Function> &function : fresh) {
        const auto [first, last] = old.equal_range(function->bdf);
        const auto same = std::find_if(
            first, last, [&](const auto &record) { return *record.second == *function; });
        const Function *record = same != last ? same->second : function.get();
        if (same == last)
            records_.push_back(std::move(function));
        Place &place = places_.at(record->id());
        place.function = record;
        place.reachable = record->answers;
    }
}

// Returns what is reachable, with `fresh` in place of what was there, ascending.
std::vector<const Function *>
Machine::reachable_with(std::span<const std::unique_ptr<Function>> fresh) const {
    ByRoutingId<const Function *> by_id;
    places_.visit_all([&](RoutingId id, const Place &place) {
        if (place.reachable)
            by_id.at(id) = place.function;
    });
    for (const auto &function : fresh)
        by_id.at(function->id()) = function.get();
    std::vector<const Function *> all;
    by_id.visit_all([&](RoutingId, const Function *function) {
        if (function)
            all.push_back(function);
    });
    return all;
}

// Each line is given once: a bridge with wrong numbers stays wrong, whatever else comes and goes.
void Machine::give_warnings(const std::vector<std::string> &lines) {
    for (const std::string &line : lines)
        if (warned_of_.insert(line).second)
            warn_(line);
}

void Machine::set_reachable(const bridge_rec &bridge, bool reachable) {
    for (const Function *function : below(bridge))
        places_.at(function->id()).reachable = reachable && function->answers;
}

// The record of a host bridge is never removed.
bool Machine::is_there(const bridge_rec &bridge) const {
    return bridge.parent == nullptr || find(bridge.bdf) != nullptr;
}

}  // namespace host
