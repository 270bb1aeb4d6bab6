#include "host/machine/bridge_tree.h"

#include "host/machine/bridge_node.h"
#include "host/machine/function.h"

namespace host {

BridgeTree::BridgeTree(std::span<const Function *const> functions, const BusLayout &layout) {
    update(functions, layout);
}

BridgeTree::~BridgeTree() = default;

bridge_rec *BridgeTree::top() const {
    return top_;
}

bridge_rec *BridgeTree::by_bdf(bdf_t bdf) const {
    Node *node = bridge_at(bdf);
    return node && node->attached ? node : nullptr;
}

bridge_rec *BridgeTree::by_secondary(unsigned bus) const {
    Node *node = bus < BUSES ? by_secondary_[bus].load() : nullptr;
    return node && node->attached ? node : nullptr;
}

bridge_rec *BridgeTree::above(bdf_t bdf) const {
    Node *node = bdf <= BDF_HIGHEST ? holder_[pci::bus_of(bdf)].load() : nullptr;
    return node && node->attached ? node : nullptr;
}

int BridgeTree::secondary_bus(const bridge_rec &bridge) const {
    const Node *node = node_of(bridge);
    return node ? node->secondary.load() : -1;
}

std::bitset<256> BridgeTree::buses_below(const bridge_rec &bridge) const {
    std::bitset<BUSES> buses;
    for (unsigned bus = 0; bus < BUSES; ++bus) {
        const bridge_rec *record = holder_[bus].load();
        while (record && record != &bridge)
            record = record->parent;
        buses[bus] = record != nullptr;
    }
    return buses;
}

std::vector<BridgeTree::BusConflict> BridgeTree::conflicts() const {
    const std::scoped_lock guard(conflicts_lock_);
    return conflicts_;
}

std::vector<bdf_t> BridgeTree::ports_above(bdf_t bdf) const {
    const std::vector<BusConflict> all_conflicts = conflicts();
    std::vector<bdf_t> ports;
    std::vector<bdf_t> without_port;  // bridges above which ports are still to be found
    const auto add = [&](bdf_t bridge) {
        const bridge_rec *record = by_bdf(bridge);
        if (!record)
            return;
        std::vector<bdf_t> &found = record->pcie_cap ? ports : without_port;
        if (std::ranges::find(found, bridge) == found.end())
            found.push_back(bridge);
    };
    const auto add_above = [&](bdf_t below) {
        const bridge_rec *holder = above(below);
        if (!holder || holder->bridge_kind == BRIDGE_KIND_HOST)
            return;
        add(holder->bdf);
        for (const BusConflict &conflict : all_conflicts)
            if (conflict.holder == holder && !is_below(conflict.bdf, *holder))
                add(conflict.bdf);
    };
    add_above(bdf);
    for (std::size_t i = 0; i < without_port.size(); ++i)
        add_above(without_port[i]);
    return ports;
}

// Returns true when `bdf` is below the bridge: such a bridge cannot lead to the other's own bus.
bool BridgeTree::is_below(bdf_t bdf, const bridge_rec &bridge) const {
    const bridge_rec *record = above(bdf);
    while (record && record != &bridge)
        record = record->parent;
    return record != nullptr;
}

// Goes from the top down, so that a walk meanwhile finds nothing below a record that is gone.
void BridgeTree::detach(bridge_rec &bridge) {
    Node *node = node_of(bridge);
    if (!node)
        return;
    node->hide_children();
    node->hide_devs();
    for (Node *child : node->all_children)
        detach(*child);
}

// Goes from the bottom up, so that every record is complete when it comes into sight.
void BridgeTree::attach(bridge_rec &bridge) {
    Node *node = node_of(bridge);
    if (!node)
        return;
    for (Node *child : node->all_children)
        attach(*child);
    node->show_devs();
    node->show_children();
}

void BridgeTree::update(std::span<const Function *const> functions, const BusLayout &layout) {
    Plan plan;
    plan_root_buses(plan, functions, layout);
    plan_bridges(plan, functions, layout);
    plan_devs(plan, functions);
    plan_conflicts(plan, functions);
    show(plan);
}

void BridgeTree::set_operations(const pcie_cap_ops_t &operations) {
    operations_ = &operations;
    nodes_.visit_all([&](RoutingId, const auto &same_id) {
        for (const auto &node : same_id)
            node->capability.ops = operations_;
    });
}

// Records that are gone leave first. Then children are shown before their parents, so that every
// record is complete when it comes into sight.
void BridgeTree::show(const Plan &plan) {
    nodes_.visit_all([&](RoutingId, const auto &same_id) {
        for (const auto &node : same_id)
            if (!plan.of.contains(node.get())) {
                node->attached = false;
                node->hide_children();
                node->hide_devs();
                node->all_children.clear();
            }
    });
    for (auto entry = plan.entries.rbegin(); entry != plan.entries.rend(); ++entry) {
        entry->node->secondary = entry->secondary;
        entry->node->set_devs(entry->devs);
        entry->node->set_children(entry->children);
    }
    bridge_rec *next = nullptr;
    for (auto root = plan.roots.rbegin(); root != plan.roots.rend(); ++root) {
        Node::store_link((*root)->next_sibling, next);
        (*root)->attached = true;
        next = *root;
    }
    for (const auto &[id, node] : plan.by_id)
        by_id_.at(id) = node;
    by_id_.visit_all([&](RoutingId id, std::atomic<Node *> &node) {
        if (!plan.by_id.contains(id))
            node = nullptr;
    });
    for (unsigned bus = 0; bus < BUSES; ++bus) {
        by_secondary_[bus] = plan.by_secondary[bus];
        holder_[bus] = plan.holder[bus];
    }
    top_ = plan.roots.empty() ? nullptr : plan.roots.front();
    const std::scoped_lock guard(conflicts_lock_);
    conflicts_ = plan.conflicts;
}

// Returns null for a record that is not of this tree. A host bridge record may have the same
// address as a bridge.
BridgeTree::Node *BridgeTree::node_of(const bridge_rec &bridge) const {
    if (bridge.bdf > BDF_HIGHEST)
        return nullptr;
    Node *node = bridge_at(bridge.bdf);
    if (node == &bridge)
        return node;
    node = holder_[pci::bus_of(bridge.bdf)];
    return node == &bridge ? node : nullptr;
}

// Returns the bridge even while it is not attached.
BridgeTree::Node *BridgeTree::bridge_at(bdf_t bdf) const {
    const auto *node = bdf <= BDF_HIGHEST ? by_id_.find(pci::routing_id_of(bdf)) : nullptr;
    return node ? node->load() : nullptr;
}

}  // namespace host
