// Plans the tree from functions and bus layout. Modules see nothing of it yet.
#include <algorithm>

#include "host/machine/bridge_node.h"
#include "host/machine/function.h"

namespace host {

void BridgeTree::plan_root_buses(Plan &plan, std::span<const Function *const> functions,
                                 const BusLayout &layout) {
    for (const Function *function : functions) {
        const unsigned bus = pci::bus_of(function->bdf);
        if (!function->answers || layout.holder[bus] || plan.holder[bus])
            continue;
        bridge_rec record{};
        record.bdf = pci::plain_bdf(bus, 0, 0);
        record.class_code = HOST_BRIDGE_CLASS;
        record.bridge_kind = BRIDGE_KIND_HOST;
        Node &root = node_for(record, nullptr);
        plan.add(root).secondary = static_cast<int>(bus);
        plan.roots.push_back(&root);
        plan.holder[bus] = &root;
    }
}

// Bridges are planned in ascending order: a bridge's bus number is higher than its parent's, so its
// parent is there before it.
void BridgeTree::plan_bridges(Plan &plan, std::span<const Function *const> functions,
                              const BusLayout &layout) {
    for (const Function *function : functions) {
        if (!function->answers || !function->is_bridge())
            continue;
        bridge_rec record{};
        record.bdf = function->bdf;
        // Some root ports carry the class of a host bridge, where every walk up the tree would end.
        record.class_code =
            function->class_code == HOST_BRIDGE_CLASS ? PCI_BRIDGE_CLASS : function->class_code;
        record.bridge_kind = BRIDGE_KIND_PCI_TO_PCI;
        Node *parent = plan.holder[pci::bus_of(function->bdf)];
        record.parent = parent;
        pci_cap_t capability{.call_word = 0, .bdf = function->bdf, .id = CAPID_PCIE, .offset = 0};
        const auto offset = function->cap(CAPID_PCIE);
        capability.offset = offset.value_or(0);
        Node &node = node_for(record, offset ? &capability : nullptr);
        Plan::Entry &entry = plan.add(node);
        plan.by_id[function->id()] = &node;
        plan.entry(parent).children.push_back(&node);
        if (layout.by_secondary[function->secondary] != function)
            continue;
        entry.secondary = function->secondary;
        plan.by_secondary[function->secondary] = &node;
        for (unsigned bus = function->secondary; bus <= function->subordinate; ++bus)
            if (layout.holder[bus] == function)
                plan.holder[bus] = &node;
    }
}

// A bus that is no bridge's secondary bus counts to the bridge whose range it is in, because what
// is there limits the payload size of that bridge's hierarchy.
void BridgeTree::plan_devs(Plan &plan, std::span<const Function *const> functions) {
    for (const Function *function : functions)
        if (function->answers)
            plan.entry(plan.holder[pci::bus_of(function->bdf)]).devs.push_back(function->bdf);
}

// Two bridges claim one secondary bus; only one can own it. The other is added to that bus's
// functions, so that its MPSS still lowers the path maximum. Limit: MPS is written to the owner
// only, and then to nothing below that the other bridge's own setting would not allow.
void BridgeTree::plan_conflicts(Plan &plan, std::span<const Function *const> functions) {
    for (const Function *function : functions) {
        if (!function->answers || function->secondary == 0)
            continue;
        Node *holder = plan.holder[function->secondary];
        const Node *own_side = plan.holder[pci::bus_of(function->bdf)];
        // On a root bus there is nothing to limit; what is on the holder's side counts already.
        if (!holder || holder == own_side || !holder->parent ||
            holder == plan.by_id.at(function->id()))
            continue;
        plan.entry(holder).devs.push_back(function->bdf);
        plan.conflicts.push_back({function->bdf, holder});
    }
}

// A record's fixed members never change, so a bridge of another kind at the same address gets a
// record of its own.
BridgeTree::Node &BridgeTree::node_for(const bridge_rec &record, const pci_cap_t *capability) {
    const auto is_same = [&](const std::unique_ptr<Node> &node) {
        return node->bridge_kind == record.bridge_kind && node->bdf == record.bdf &&
               node->class_code == record.class_code && node->parent == record.parent &&
               (node->pcie_cap ? capability && node->capability.head.offset == capability->offset
                               : !capability);
    };
    std::vector<std::unique_ptr<Node>> &same_id = nodes_.at(pci::routing_id_of(record.bdf));
    const auto found = std::ranges::find_if(same_id, is_same);
    if (found != same_id.end())
        return **found;
    Node &node = *same_id.emplace_back(std::make_unique<Node>());
    node.bdf = record.bdf;
    node.class_code = record.class_code;
    node.bridge_kind = record.bridge_kind;
    node.parent = record.parent;
    if (capability) {
        node.capability = {.head = *capability, .ops = operations_};
        node.pcie_cap = &node.capability;
    }
    return node;
}

}  // namespace host
