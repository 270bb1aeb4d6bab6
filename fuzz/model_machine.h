// A machine in the model: which bridge leads where, and the questions that payload sizes and ECRC
// raise. Each is answered by looking through all functions.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <vector>

#include "fuzz/model.h"
#include "fuzz/model_node.h"
#include "platform/bdf.h"

namespace host::fuzz::model {

constexpr unsigned LARGEST = 4096;
constexpr std::uint32_t MAX = 0xFFFF'FFFF;  // "max", and a path that sets no limit

class Machine {
public:
    Machine(const Spaces &before, const std::vector<bool> &managed) : managed_(managed) {
        for (const auto &[id, bytes] : before)
            nodes_.emplace(id, read_node(id, bytes));
        hide_virtual_functions();
        lay_out_buses();
        choose_forms();
    }

    bool manages(unsigned bus) const { return managed_[bus]; }

    Spaces spaces() const {
        Spaces spaces;
        for (const auto &[id, node] : nodes_)
            spaces.emplace(id, node.bytes);
        return spaces;
    }

    // Returns the function that is there and answers, in either form; else null.
    Node *at(bdf_t bdf) {
        const auto found = nodes_.find(pci::routing_id_of(bdf));
        return found != nodes_.end() && is_seen(found->second) ? &found->second : nullptr;
    }

    static bool is_seen(const Node &node) { return node.answers && node.there; }

    void each(const std::function<void(Node &)> &visit) {
        for (auto &[id, node] : nodes_)
            if (is_seen(node))
                visit(node);
    }

    // Functions that do not answer or have been removed are among them.
    void each_below(const Node &bridge, const std::function<void(Node &)> &visit) {
        for (auto &[id, node] : nodes_)
            if (is_below(node, bridge))
                visit(node);
    }

    bool has_ari_forms(unsigned bus) {
        const Node *bridge = leads_to_[bus], *first = at(bus << 8);
        return bridge && first && first->ari && bridge->pcie &&
               (bridge->type == 4 || bridge->type == 6 || bridge->type == 8) &&
               (bridge->express(2, 2).value_or(0) & 0xF) >= 2 &&
               (bridge->express(0x28, 2).value_or(0) & 0x20);
    }

    bool has_virtual_functions() const {
        return std::ranges::any_of(nodes_, [](const auto &each) { return each.second.sriov != 0; });
    }

    bool knows_resets() const {
        return std::ranges::all_of(nodes_,
                                   [](const auto &each) { return knows_reset(each.second); });
    }

    // The bridge that has this secondary bus; null: none.
    Node *leads_to(unsigned bus) const { return leads_to_[bus]; }

    static Node *topmost(Node &node) {
        Node *top = &node;
        while (top->parent)
            top = top->parent;
        return top;
    }

    bool is_multi(const Node &node) {
        const Node *first = at(key_of(node));
        return first && first->multi;
    }

    static bdf_t key_of(const Node &node) {
        return node.ari_form ? node.bus() << 8 : node.id & ~7U;
    }

    // Returns true when the function, named in this form, is an endpoint.
    static bool is_endpoint(const Node &node, bool ari) {
        return node.pcie && (node.type == 0 || node.type == 1 || node.type == 9) &&
               (!ari || node.ari);
    }

    static bdf_t bdf_of(const Node &node) { return node.id | (node.ari_form ? BDF_ARI_FLAG : 0); }

    // The bridges above a bus, the nearest first. Empty where they do not begin at a managed root
    // port.
    std::vector<Node *> path_to(unsigned bus_number) {
        std::vector<Node *> path;
        for (Node *bridge = leads_to_[bus_number]; bridge; bridge = bridge->parent)
            path.push_back(bridge);
        const bool is_path = !path.empty() && path.back()->pcie && path.back()->type == 4 &&
                             path.back()->class_code >> 8 == 0x0604 && managed_[path.back()->bus()];
        return is_path ? path : std::vector<Node *>();
    }

    static bool is_below(const Node &node, const Node &bridge) {
        const Node *above = node.parent;
        while (above && above != &bridge)
            above = above->parent;
        return above != nullptr;
    }

    // Returns the bridge that has the bus which another one claims as its secondary bus too.
    Node *rival_of(const Node &node) {
        Node *holder = node.secondary ? owner_[node.secondary] : nullptr;
        return holder && holder != node.parent && holder != &node ? holder : nullptr;
    }

    std::uint32_t limit_of(const Node &root) {
        std::uint32_t limit = MAX;
        each([&](Node &node) {
            const Node *rival = rival_of(node);
            const bool counts = &node == &root || is_below(node, root) ||
                                (rival && (rival == &root || is_below(*rival, root)));
            if (counts && node.supported().value_or(LARGEST + 1) <= LARGEST)
                limit = std::min(limit, *node.supported());
        });
        return limit;
    }

    // The ports that packets of a function may reach first: the nearest ones above it with a
    // payload size, on each way that bus numbers allow.
    std::set<Node *> ports_above(const Node &node) {
        std::set<Node *> ports, passed;
        std::vector<const Node *> open = {&node};
        while (!open.empty()) {
            Node *holder = open.back()->parent;
            open.pop_back();
            if (!holder)
                continue;
            std::vector<Node *> ways = {holder};
            each([&](Node &other) {
                if (rival_of(other) == holder && !is_below(other, *holder))
                    ways.push_back(&other);
            });
            for (Node *way : ways)
                if (way->pcie)
                    ports.insert(way);
                else if (passed.insert(way).second)
                    open.push_back(way);
        }
        return ports;
    }

    // A port whose size cannot be read lets only the smallest through.
    unsigned bound_of(const Node &node) {
        unsigned bound = LARGEST * 8;
        for (const Node *port : ports_above(node))
            bound = std::min(bound, port->payload().value_or(128));
        return bound;
    }

private:
    // An SR-IOV capability's virtual functions are not there, unless it is a virtual one's own.
    void hide_virtual_functions() {
        std::set<RoutingId> all;
        each([&](Node &node) {
            if (!node.sriov || all.contains(node.id) ||
                !(node.get(node.sriov + 8, 2).value_or(0) & 1))
                return;
            const auto at = [&](unsigned offset) {
                return node.get(node.sriov + offset, 2).value_or(0);
            };
            for (unsigned n = 0; n < at(0x10); ++n)
                all.insert(static_cast<RoutingId>(node.id + at(0x14) + n * at(0x16)));
        });
        for (const RoutingId id : all)
            if (Node *node = at(id); node && node->layout == 0)
                node->answers = false;
    }

    // Bridges are placed in ascending order. Each gets the buses of its range up to the first that
    // has gone to a bridge which is not the one above it.
    void lay_out_buses() {
        std::vector<Node *> owner(256);  // the deepest bridge whose range holds the bus
        each([&](Node &node) {
            Node *above = owner[node.bus()];
            const auto is_free = [&](unsigned bus) {
                return owner[bus] == nullptr || owner[bus] == above;
            };
            if (!node.bridge || node.secondary <= node.bus() || node.subordinate < node.secondary ||
                !is_free(node.secondary))
                return;
            leads_to_[node.secondary] = &node;
            for (unsigned bus = node.secondary; bus <= node.subordinate && is_free(bus); ++bus)
                owner[bus] = &node;
        });
        owner_ = owner;
        for (auto &[id, node] : nodes_)
            node.parent = owner_[node.bus()];
    }

    // A link leads down from root ports, downstream ports, and bridges from PCI to PCI Express.
    void choose_forms() {
        each([&](Node &node) { node.ari_form = has_ari_forms(node.bus()); });
    }

    const std::vector<bool> managed_;
    std::map<RoutingId, Node> nodes_;
    std::vector<Node *> leads_to_ = std::vector<Node *>(256);  // by secondary bus
    std::vector<Node *> owner_;  // by bus, the deepest bridge whose range holds it
};

}  // namespace host::fuzz::model
