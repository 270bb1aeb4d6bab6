#include "host/exports/incomplete_hierarchies.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>

#include "host/base/address.h"
#include "host/exports/payload_sizes.h"
#include "host/exports/serve.h"

namespace host {
namespace {

// Returns the root port that a function is or is below; null when there is none.
const Function *root_port_of(const Machine &machine, RoutingId id) {
    const bridge_rec *record = topmost_bridge(machine, id);
    const Function *top = record ? machine.find(record->bdf) : nullptr;
    return top && top->port_type == PORT_TYPE_ROOT_PORT ? top : nullptr;
}

bool is_set_to(const Function &function, unsigned code) {
    std::uint16_t devctl = 0;
    return recall_devctl(function, devctl) == PCI_OK && payload_code(devctl) == code;
}

}  // namespace

std::vector<RoutingId> GivenSizes::functions() const {
    std::vector<RoutingId> found;
    for (unsigned bus = 0; bus < buses_.size(); ++bus)
        for (unsigned id = bus << 8; buses_[bus] && pci::bus_of(id) == bus; ++id)
            if (codes_[id] != NONE)
                found.push_back(static_cast<RoutingId>(id));
    return found;
}

std::vector<Hierarchy> hierarchies_of_one_size(const Machine &machine, const GivenSizes &given,
                                               const std::vector<bool> &ids) {
    std::map<RoutingId, Hierarchy> concerned;  // by root port
    const std::vector<RoutingId> all = given.functions();
    for (const RoutingId id : all)
        if (const Function *root_port = ids[id] ? root_port_of(machine, id) : nullptr)
            if (const auto code = given.find(root_port->id()))
                concerned[root_port->id()] = {.root_port = root_port, .code = *code};
    for (const RoutingId id : all) {
        const Function *root_port = root_port_of(machine, id);
        const auto found = root_port ? concerned.find(root_port->id()) : concerned.end();
        if (found != concerned.end() && found->second.code != given.find(id))
            concerned.erase(found);
    }
    std::vector<Hierarchy> found;
    for (const auto &[id, hierarchy] : concerned)
        if (is_set_to(*hierarchy.root_port, hierarchy.code))
            found.push_back(hierarchy);
    return found;
}

namespace {

// Finds the bridges that are left to be set in one hierarchy.
class Search {
public:
    Search(const Machine &machine, const Hierarchy &hierarchy, const GivenSizes &given)
        : machine_(machine), hierarchy_(hierarchy), given_(given),
          conflicts_(machine.bridges().conflicts()) {}

    std::vector<Branch> find() const {
        std::vector<Branch> found;
        std::set<RoutingId> seen;
        for (const Function *function : below(*hierarchy_.root_port)) {
            if (seen.contains(function->id()) || !is_left_out(*function))
                continue;
            found.push_back(branch_at(*function));
            for (const Function *each : below(*function))
                seen.insert(each->id());
        }
        return found;
    }

private:
    // Returns functions in ascending order, so that a port comes before what is below it.
    // Conventional functions have no payload size; virtual ones have that of their physical
    // function.
    std::vector<const Function *> below(const Function &bridge) const {
        const bridge_rec *record = machine_.bridges().by_bdf(bridge.bdf);
        auto found = record ? machine_.below(*record) : std::vector<const Function *>();
        std::erase_if(found, [&](const Function *each) {
            return !machine_.reachable(*each) || !each->port_type;
        });
        return found;
    }

    bool is_left_out(const Function &function) const {
        std::uint16_t devctl = 0;
        return function.is_bridge() && !given_.find(function.id()) &&
               recall_devctl(function, devctl) == PCI_OK && payload_code(devctl) < hierarchy_.code;
    }

    Branch branch_at(const Function &top) const {
        Branch branch{.bridges = {&top}, .obstacle = own_obstacle(top)};
        const auto bound = lowest_bound(machine_, top);
        if (branch.obstacle.empty() && bound && bound->code < hierarchy_.code)
            branch.obstacle = "it can be set no higher" + port_text(*bound);
        for (const Function *function : below(top)) {
            const bool is_set_too = is_left_out(*function);
            if (is_set_too)
                branch.bridges.push_back(function);
            if (branch.obstacle.empty())
                branch.obstacle = is_set_too ? own_obstacle(*function) : other_obstacle(*function);
        }
        return branch;
    }

    std::string own_obstacle(const Function &bridge) const {
        constexpr std::array TYPES = {PORT_TYPE_SWITCH_UPSTREAM, PORT_TYPE_SWITCH_DOWNSTREAM,
                                      PORT_TYPE_PCIE_TO_PCI};
        if (std::ranges::find(TYPES, *bridge.port_type) == TYPES.end())
            return bdf_text(bridge.bdf) + " is no switch port and no PCI Express to PCI bridge";
        if (!manages(pci::bus_of(bridge.bdf)))
            return bdf_text(bridge.bdf) + " is on a bus that is not managed";
        if (!has_certain_place(bridge))
            return "bus numbers do not tell what is above and below " + bdf_text(bridge.bdf);
        return support_obstacle(bridge);
    }

    // Returns true when bus numbers tell its place: its bus is a bridge's secondary bus, its own
    // secondary bus is no other bridge's, and no bridge on the way or below has such a conflict. A
    // bridge that has been removed claims nothing.
    bool has_certain_place(const Function &bridge) const {
        const BridgeTree &bridges = machine_.bridges();
        const bridge_rec *record = bridges.by_bdf(bridge.bdf);
        return bridges.by_secondary(pci::bus_of(bridge.bdf)) && record &&
               bridges.by_secondary(bridge.secondary) == record &&
               std::ranges::none_of(conflicts_, [&](const BridgeTree::BusConflict &conflict) {
                   const bridge_rec *claimant = bridges.by_bdf(conflict.bdf);
                   return claimant && (are_in_line(*record, *claimant) ||
                                       are_in_line(*record, *conflict.holder));
               });
    }

    // Returns true when the bridges are the same, or one is below the other.
    bool are_in_line(const bridge_rec &one, const bridge_rec &other) const {
        const BridgeTree &bridges = machine_.bridges();
        return &one == &other || bridges.buses_below(one)[pci::bus_of(other.bdf)] ||
               bridges.buses_below(other)[pci::bus_of(one.bdf)];
    }

    std::string support_obstacle(const Function &function) const {
        if (function.mpss >= hierarchy_.code)
            return "";
        return bdf_text(function.bdf) + " supports " + bytes_text(function.mpss);
    }

    // A function that is gone hinders nothing.
    std::string other_obstacle(const Function &function) const {
        std::uint16_t devctl = 0;
        const pci_err_t error = recall_devctl(function, devctl);
        if (error == PCI_ERR_NO_DEVICE)
            return "";
        if (error != PCI_OK)
            return bdf_text(function.bdf) + " cannot be read";
        if (payload_code(devctl) < hierarchy_.code)
            return bdf_text(function.bdf) + " is set to " + bytes_text(payload_code(devctl));
        return support_obstacle(function);
    }

    const Machine &machine_;
    const Hierarchy &hierarchy_;
    const GivenSizes &given_;
    const std::vector<BridgeTree::BusConflict> conflicts_;
};

}  // namespace

std::vector<Branch> incomplete_branches(const Machine &machine, const Hierarchy &hierarchy,
                                        const GivenSizes &given) {
    return Search(machine, hierarchy, given).find();
}

}  // namespace host
