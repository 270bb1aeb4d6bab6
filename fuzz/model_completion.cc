// --complete in the model: bridges that the module has passed over get the size of their hierarchy.
#include <algorithm>

#include "fuzz/model_hierarchies.h"
#include "platform/types.h"

namespace host::fuzz::model {

void Hierarchies::complete_all() {
    std::set<Node *> roots;
    for (Node *node : recent_)
        if (is_seen(*node))
            roots.insert(topmost(*node));
    for (Node *root : roots)
        if (has_one_size(*root))
            complete(*root);
}

// The root port was given a size, has it still, and nothing below was given another.
bool Hierarchies::has_one_size(Node &root) {
    const auto size = given_.find(&root);
    if (size == given_.end() || root.payload() != size->second)
        return false;
    return std::ranges::all_of(given_, [&](const auto &given) {
        return !is_seen(*given.first) || topmost(*given.first) != &root ||
               given.second == size->second;
    });
}

void Hierarchies::complete(Node &root) {
    const unsigned size = given_.at(&root);
    std::set<Node *> left;
    each([&](Node &node) {
        if (node.bridge && is_below(node, root) && !given_.contains(&node) &&
            node.payload().value_or(size) < size)
            left.insert(&node);
    });
    for (Node *top : left) {
        if (std::ranges::any_of(left, [&](Node *other) { return is_below(*top, *other); }))
            continue;
        std::set<Node *> group = {top};
        for (Node *other : left)
            if (is_below(*other, *top))
                group.insert(other);
        if (can_complete(*top, group, size))
            for (Node *node : group) {
                node->set_payload(size);
                node->written = true;
            }
    }
}

bool Hierarchies::can_complete(Node &top, const std::set<Node *> &group, unsigned size) {
    bool able = !is_claimed_twice(top);
    for (const Node *node : group)
        able = able && leads_to(node->bus()) && leads_to(node->secondary) == node &&
               manages(node->bus()) && node->type >= PORT_TYPE_SWITCH_UPSTREAM &&
               node->type <= PORT_TYPE_PCIE_TO_PCI;
    for (const Node *above = top.parent; above; above = above->parent)
        able = able && (!above->pcie || above->payload().value_or(128) >= size);
    each([&](Node &node) {
        if (!node.pcie || (&node != &top && !is_below(node, top)))
            return;
        able = able && node.supported().value_or(0) >= size &&
               (group.contains(&node) || node.payload().value_or(0) >= size);
    });
    return able;
}

// Returns true when another bridge claims a bus of this one, of one above or of one below, or one
// of these claims another's.
bool Hierarchies::is_claimed_twice(const Node &top) {
    const auto concerns = [&](const Node &node) {
        return &node == &top || is_below(node, top) || is_below(top, node);
    };
    bool is_claimed = false;
    each([&](Node &node) {
        const Node *holder = rival_of(node);
        is_claimed = is_claimed || (holder && (concerns(*holder) || concerns(node)));
    });
    return is_claimed;
}

}  // namespace host::fuzz::model
