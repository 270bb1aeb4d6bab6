// The bridge records that modules see, with their locks.
#pragma once

#include <array>
#include <atomic>
#include <bitset>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "host/base/by_routing_id.h"
#include "host/space/config_space.h"
#include "platform/bridge.h"

namespace host {

struct Function;
struct BusLayout;

// Built by Machine from the bridges' bus numbers, and again when bridges or functions come or go.
// Look-ups take constant time, from any thread. Root buses hang below host bridge records, which
// are siblings of each other in ascending bus order.
class BridgeTree {
public:
    // A bridge whose secondary bus number conflicts with that of another bridge, which got the bus.
    struct BusConflict {
        bdf_t bdf;
        const bridge_rec *holder;  // the other bridge: functions on that bus count as below it
    };

    BridgeTree(std::span<const Function *const> functions, const BusLayout &layout);
    ~BridgeTree();
    BridgeTree(const BridgeTree &) = delete;
    BridgeTree &operator=(const BridgeTree &) = delete;

    bridge_rec *top() const;              // first host bridge record; null without buses
    bridge_rec *by_bdf(bdf_t bdf) const;  // either form; null when it is no bridge or removed
    bridge_rec *by_secondary(unsigned bus) const;  // null for a root bus
    bridge_rec *above(bdf_t bdf) const;            // the record whose secondary side holds bdf
    // Returns the secondary bus, or the bus of a root bus's record; -1 when the bridge has none.
    int secondary_bus(const bridge_rec &bridge) const;

    // Returns the buses whose functions are below the bridge, even while they are removed.
    std::bitset<256> buses_below(const bridge_rec &bridge) const;

    // Returns the conflicting bridges; each is in its holder's list of functions too.
    std::vector<BusConflict> conflicts() const;

    // Returns the ports that packets of a function may reach first: the nearest bridge above it
    // that has a PCI Express capability, and likewise above each bridge that claims the same bus,
    // because registers do not tell which of them leads there. Empty for functions of root buses.
    std::vector<bdf_t> ports_above(bdf_t bdf) const;

    // Take every record below the bridge out of the tree or back in, with the lists of functions.
    // They take the records' own locks, one at a time. Calls must not overlap.
    void detach(bridge_rec &bridge);
    void attach(bridge_rec &bridge);

    // Sets what the tree shows from now on; `functions` is ascending. Records of bridges that are
    // gone leave the tree and come back with such a bridge; none is ever freed. Takes the records'
    // own locks, one at a time. Calls must not overlap, nor detach() and attach().
    void update(std::span<const Function *const> functions, const BusLayout &layout);

    // Sets the operations of the records' PCI Express capabilities; call before modules see the
    // tree.
    void set_operations(const pcie_cap_ops_t &operations);

private:
    struct Node;
    struct Plan;

    Node &node_for(const bridge_rec &record, const pci_cap_t *capability);
    void plan_root_buses(Plan &plan, std::span<const Function *const> functions,
                         const BusLayout &layout);
    void plan_bridges(Plan &plan, std::span<const Function *const> functions,
                      const BusLayout &layout);
    static void plan_devs(Plan &plan, std::span<const Function *const> functions);
    static void plan_conflicts(Plan &plan, std::span<const Function *const> functions);
    void show(const Plan &plan);
    bool is_below(bdf_t bdf, const bridge_rec &bridge) const;
    Node *node_of(const bridge_rec &bridge) const;
    Node *bridge_at(bdf_t bdf) const;

    // Records by routing ID: a bridge's own, a host bridge record's is the first of its bus.
    ByRoutingId<std::vector<std::unique_ptr<Node>>> nodes_;
    const pcie_cap_ops_t *operations_ = nullptr;
    mutable std::mutex conflicts_lock_;
    std::vector<BusConflict> conflicts_;
    ByRoutingId<std::atomic<Node *>> by_id_;  // bridges by their own routing ID
    std::atomic<Node *> top_ = nullptr;       // first host bridge record
    std::array<std::atomic<Node *>, 256> by_secondary_{};
    std::array<std::atomic<Node *>, 256> holder_{};  // the deepest record that holds the bus
};

}  // namespace host
