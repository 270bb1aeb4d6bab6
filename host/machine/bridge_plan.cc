// Decides from functions and bus layout what the tree is to become. Nothing here can be seen by
// modules yet.
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

// Ascending: a bridge's parent is there before it, as its bus number is lower.
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

// A bus that is nobody's secondary bus counts to the bridge whose range it is in: whatever is there
// is below that bridge, and limits what its hierarchy can be set to.
void BridgeTree::plan_devs(Plan &plan, std::span<const Function *const> functions) {
    for (const Function *function : functions)
        if (function->answers)
            plan.entry(plan.holder[pci::bus_of(function->bdf)]).devs.push_back(function->bdf);
}

// Of two bridges with one secondary bus only one can be the record above it, and which of them
// leads there nobody can tell. The other counts as one more function on that bus: whichever it is,
// no payload size above what both support is chosen for what is there. The size is written to the
// one that has the bus only, and then no further down than the other one is set to.
void BridgeTree::plan_rivals(Plan &plan, std::span<const Function *const> functions) {
    for (const Function *function : functions) {
        if (!function->answers || function->secondary == 0)
            continue;
        Node *holder = plan.holder[function->secondary];
        const Node *own_side = plan.holder[pci::bus_of(function->bdf)];
        // On a root bus there is nothing to limit; what is on the holder's side counts already.
        if (!holder || holder == own_side || !holder->parent ||
            holder == plan.by_id[function->id()])
            continue;
        plan.entry(holder).devs.push_back(function->bdf);
        plan.rivals.push_back({function->bdf, holder});
    }
}

// Records never change what is fixed in them: a bridge of another kind at the same place gets a
// record of its own.
BridgeTree::Node &BridgeTree::node_for(const bridge_rec &record, const pci_cap_t *capability) {
    const auto is_same = [&](const std::unique_ptr<Node> &node) {
        return node->bridge_kind == record.bridge_kind && node->bdf == record.bdf &&
               node->class_code == record.class_code && node->parent == record.parent &&
               (node->pcie_cap ? capability && node->capability.head.offset == capability->offset
                               : !capability);
    };
    std::vector<std::unique_ptr<Node>> &same_id = nodes_[record.bdf & BDF_ROUTING_ID];
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
