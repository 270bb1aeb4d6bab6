// Events in the model: which registers are reset, and what is set again afterwards.
#include <algorithm>

#include "fuzz/model_hierarchies.h"
#include "platform/types.h"

namespace host::fuzz::model {

bool Hierarchies::play(const Event &event) {
    Node *node = at(event.id);
    if (!node)
        return false;
    if (event.word == "flr") {
        if (node->bridge || (node->pcie && node->type >= PORT_TYPE_ROOT_PORT &&
                             node->type <= PORT_TYPE_PCI_TO_PCIE))
            return false;
        reset(*node);
        after_function_reset(*node);
    } else if (event.word == "bus-reset") {
        if (!node->parent && !node->bridge)
            return false;
        reset_below(node->parent ? *node->parent : *node);
        after_bus_reset(*node);
    } else {
        if (!node->bridge)
            return false;
        const bool comes = event.word == "insert";
        each_below(*node, [&](Node &below) { below.there = comes; });
        if (comes) {
            reset_below(*node);
            if (event.status == 0)
                after_insertion(*node, event.value.value_or(0));
        }
    }
    settle();
    return true;
}

void Hierarchies::reset_below(const Node &bridge) {
    each_below(bridge, [](Node &node) { reset(node); });
}

// The size of its hierarchy, which start-up has chosen, on this function alone.
void Hierarchies::after_function_reset(Node &node) {
    if (!device_of(bdf_of(node)))
        return;
    const auto size = sizes_.find(path_to(node.bus()).back());
    if (size != sizes_.end())
        write(node, size->second);
}

// The bridge above; of a root bus's function, itself if it is a root port.
Node *Hierarchies::bridge_for(Node &node) {
    if (Node *bridge = leads_to(node.bus()))
        return bridge;
    Node *top = topmost(node);
    return top->bridge && top->pcie && top->type == PORT_TYPE_ROOT_PORT ? top : nullptr;
}

bool Hierarchies::has_bridges(const Node &bridge) {
    bool has = false;
    each([&](Node &node) { has = has || (node.bridge && node.parent == &bridge); });
    return has;
}

// Every path of the hierarchy; or one device, where the bridge above has no bridges below it.
void Hierarchies::after_bus_reset(Node &node) {
    Node *bridge = bridge_for(node);
    if (!bridge)
        return;
    const bool is_one_device = bridge != &node && !has_bridges(*bridge);
    if (is_one_device) {
        const Device *device = device_of(bdf_of(node));
        const auto size = device ? sizes_.find(path_to(device->bus).back()) : sizes_.end();
        if (size != sizes_.end())
            write_device(*device, size->second);
        return;
    }
    const auto size = sizes_.find(topmost(*bridge));
    if (size == sizes_.end())
        return;
    for (const Device &device : devices_)
        if (path_to(device.bus).back() == size->first)
            program(device, size->second);
}

// The functions on a bridge's secondary side, then those of each bridge there. A bridge that claims
// a bus that another has is on both sides.
void Hierarchies::after_insertion(const Node &bridge, unsigned value) {
    const bool leads_to_a_bus = leads_to(bridge.secondary) == &bridge;
    if (value > 255 || (value == 0 && !leads_to_a_bus))
        return;
    set_ecrc_on([&](Node &node) { return node.parent == &bridge || rival_of(node) == &bridge; });
    each([&](Node &node) {
        if (node.bridge && node.parent == &bridge)
            after_insertion(node, 0);
    });
}

void Hierarchies::after_root_bus_insertion(unsigned bus) {
    const auto is_on_bus = [&](const Node &node) { return !node.parent && node.bus() == bus; };
    set_ecrc_on(is_on_bus);
    each([&](Node &node) {
        if (node.bridge && is_on_bus(node))
            after_insertion(node, 0);
    });
}

void Hierarchies::set_ecrc_on(const std::function<bool(Node &)> &is_there) {
    each([&](Node &node) {
        if (!is_there(node))
            return;
        for (const Wish &wish : wishes_)
            if (wish.bdf == bdf_of(node))
                apply(wish);
    });
}

// Another function comes to the address of one, with whatever the kernel has set it to. Bridges and
// devices with virtual functions change more than the model knows.
bool Hierarchies::swap(RoutingId id, const std::vector<std::uint8_t> &bytes) {
    Node *node = at(id);
    const Node come = read_node(id, bytes);
    if (!node || node->bridge || come.bridge || !come.answers || come.sriov ||
        has_virtual_functions() || !knows_reset(come))
        return false;
    node->there = false;
    settle();
    Node *parent = node->parent;
    *node = come;
    node->parent = parent;
    node->ari_form = has_ari_forms(node->bus());
    node->written = is_above_given_size(*node);
    if (parent)
        after_insertion(*parent, leads_to(parent->secondary) == parent ? parent->secondary : 0);
    else
        after_root_bus_insertion(node->bus());
    settle();
    return true;
}

// It may have come while the module lowered its port.
bool Hierarchies::is_above_given_size(const Node &node) {
    return std::ranges::any_of(ports_above(node), [&](Node *port) {
        const auto given = given_.find(port);
        return given != given_.end() && port->payload() == given->second &&
               node.payload().value_or(0) > given->second;
    });
}

}  // namespace host::fuzz::model
