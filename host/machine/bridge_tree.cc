#include "host/machine/bridge_tree.h"

#include <algorithm>
#include <unordered_map>

#include "host/machine/bus_layout.h"
#include "host/machine/function.h"

namespace host {

namespace {

class MutexGuard {
public:
    explicit MutexGuard(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~MutexGuard() { pthread_mutex_unlock(&mutex_); }
    MutexGuard(const MutexGuard &) = delete;
    MutexGuard &operator=(const MutexGuard &) = delete;

private:
    pthread_mutex_t &mutex_;
};

class WriteGuard {
public:
    explicit WriteGuard(pthread_rwlock_t &lock) : lock_(lock) { pthread_rwlock_wrlock(&lock_); }
    ~WriteGuard() { pthread_rwlock_unlock(&lock_); }
    WriteGuard(const WriteGuard &) = delete;
    WriteGuard &operator=(const WriteGuard &) = delete;

private:
    pthread_rwlock_t &lock_;
};

}  // namespace

// A record with what it holds while everything is there; the record's own lists show what of that
// is there now.
struct BridgeTree::Node : bridge_rec {
    Node() : bridge_rec{} {
        pthread_mutex_init(&children_lock, nullptr);
        // A thread that reads may read again while a writer waits: what a writer preference denies.
        pthread_rwlockattr_t attributes;
        pthread_rwlockattr_init(&attributes);
        pthread_rwlockattr_setkind_np(&attributes, PTHREAD_RWLOCK_PREFER_READER_NP);
        pthread_rwlock_init(&devs_lock, &attributes);
        pthread_rwlockattr_destroy(&attributes);
    }
    ~Node() {
        pthread_rwlock_destroy(&devs_lock);
        pthread_mutex_destroy(&children_lock);
    }
    Node(const Node &) = delete;
    Node &operator=(const Node &) = delete;

    // In place, where there is room: arrays that were named stay, and never shrink.
    void set_devs(std::span<const bdf_t> functions) {
        const WriteGuard guard(devs_lock);
        if (functions.size() > room) {
            room = std::max<std::size_t>(functions.size(), 2 * room);
            arrays.push_back(std::make_unique<bdf_t[]>(room));
        }
        for (std::size_t i = 0; i < functions.size(); ++i)
            __atomic_store_n(&arrays.back()[i], functions[i], __ATOMIC_RELAXED);
        all_devs = static_cast<std::uint32_t>(functions.size());
        store_devs();
    }

    void show_devs() {
        const WriteGuard guard(devs_lock);
        store_devs();
    }

    void store_devs() {
        const bdf_t *first = arrays.empty() ? nullptr : arrays.back().get();
        __atomic_store_n(&devs, first, __ATOMIC_RELEASE);
        __atomic_store_n(&num_devs, all_devs, __ATOMIC_RELEASE);
    }

    void hide_devs() {
        const WriteGuard guard(devs_lock);
        __atomic_store_n(&num_devs, 0, __ATOMIC_RELEASE);
        __atomic_store_n(&devs, nullptr, __ATOMIC_RELEASE);
    }

    // From the last to the first: whoever walks the list meanwhile misses none that stays.
    void show_children() {
        const MutexGuard guard(children_lock);
        Node *next = nullptr;
        for (auto child = all_children.rbegin(); child != all_children.rend(); ++child) {
            store_link((*child)->next_sibling, next);
            (*child)->attached = true;
            next = *child;
        }
        store_link(children, next);
        store_count(static_cast<std::uint32_t>(all_children.size()));
    }

    void set_children(const std::vector<Node *> &children_now) {
        all_children = children_now;
        show_children();
    }

    void hide_children() {
        const MutexGuard guard(children_lock);
        store_link(children, nullptr);
        store_count(0);
        for (Node *child : all_children) {
            child->attached = false;
            store_link(child->next_sibling, nullptr);
        }
    }

    // Modules read links and lists without the locks too: each is one atomic word.
    static void store_link(bridge_rec *&link, bridge_rec *value) {
        __atomic_store_n(&link, value, __ATOMIC_RELEASE);
    }
    void store_count(std::uint32_t value) {
        __atomic_store_n(&num_children, value, __ATOMIC_RELAXED);
    }

    std::atomic<int> secondary = -1;
    std::vector<Node *> all_children;              // ascending
    std::vector<std::unique_ptr<bdf_t[]>> arrays;  // those that devs has named, the last one of now
    std::size_t room = 0;                          // of the last array
    std::uint32_t all_devs = 0;                    // functions in the last array
    pcie_cap_t capability{};
    std::atomic<bool> attached = false;  // whether lookups find it
};

// What the tree is to become, before anybody sees it.
struct BridgeTree::Plan {
    struct Entry {
        Node *node;
        int secondary = -1;
        std::vector<Node *> children{};  // ascending
        std::vector<bdf_t> devs{};       // ascending, rivals behind the others
    };

    Entry &add(Node &node) {
        of[&node] = entries.size();
        return entries.emplace_back(Entry{.node = &node});
    }
    Entry &entry(const Node *node) { return entries[of.at(node)]; }

    std::vector<Entry> entries;  // parents before children
    std::unordered_map<const Node *, std::size_t> of;
    std::vector<Node *> roots;  // ascending
    std::vector<Node *> by_id = std::vector<Node *>(ROUTING_IDS);
    std::array<Node *, BUSES> by_secondary{};
    std::array<Node *, BUSES> holder{};
    std::vector<Rival> rivals;
};

BridgeTree::BridgeTree(std::span<const Function *const> functions, const BusLayout &layout)
    : nodes_(ROUTING_IDS), by_id_(ROUTING_IDS) {
    update(functions, layout);
}

BridgeTree::~BridgeTree() = default;

bridge_rec *BridgeTree::top() const {
    return top_;
}

bridge_rec *BridgeTree::by_bdf(bdf_t bdf) const {
    Node *node = bdf <= BDF_HIGHEST ? by_id_[bdf & BDF_ROUTING_ID].load() : nullptr;
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

std::vector<BridgeTree::Rival> BridgeTree::rivals() const {
    const std::scoped_lock guard(rivals_lock_);
    return rivals_;
}

std::vector<bdf_t> BridgeTree::ports_above(bdf_t bdf) const {
    const std::vector<Rival> all_rivals = rivals();
    std::vector<bdf_t> ports;
    std::vector<bdf_t> without_port{bdf};  // functions above which ports are still to be found
    const auto add = [&](bdf_t bridge) {
        const bridge_rec *record = by_bdf(bridge);
        if (!record)
            return;
        std::vector<bdf_t> &found = record->pcie_cap ? ports : without_port;
        if (std::ranges::find(found, bridge) == found.end())
            found.push_back(bridge);
    };
    for (std::size_t i = 0; i < without_port.size(); ++i) {
        const bridge_rec *holder = above(without_port[i]);
        if (!holder || holder->bridge_kind == BRIDGE_KIND_HOST)
            continue;
        add(holder->bdf);
        for (const Rival &rival : all_rivals)
            if (rival.holder == holder && !is_below(rival.bdf, *holder))
                add(rival.bdf);
    }
    return ports;
}

// What is below a bridge does not lead to the bridge's own bus.
bool BridgeTree::is_below(bdf_t bdf, const bridge_rec &bridge) const {
    const bridge_rec *record = above(bdf);
    while (record && record != &bridge)
        record = record->parent;
    return record != nullptr;
}

// From the top down: who walks the tree meanwhile finds nothing below a record that is gone.
void BridgeTree::detach(bridge_rec &bridge) {
    Node *node = node_of(bridge);
    if (!node)
        return;
    node->hide_children();
    node->hide_devs();
    for (Node *child : node->all_children)
        detach(*child);
}

// From the bottom up: what comes into sight is complete.
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
    plan_rivals(plan, functions);
    show(plan);
}

void BridgeTree::set_operations(const pcie_cap_ops_t &operations) {
    operations_ = &operations;
    for (const auto &same_id : nodes_)
        for (const auto &node : same_id)
            node->capability.ops = operations_;
}

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

// What is gone leaves first. Then children before their parents: what comes into sight is complete.
void BridgeTree::show(const Plan &plan) {
    for (const auto &same_id : nodes_)
        for (const auto &node : same_id)
            if (!plan.of.contains(node.get())) {
                node->attached = false;
                node->hide_children();
                node->hide_devs();
                node->all_children.clear();
            }
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
    for (std::size_t id = 0; id < ROUTING_IDS; ++id)
        by_id_[id] = plan.by_id[id];
    for (unsigned bus = 0; bus < BUSES; ++bus) {
        by_secondary_[bus] = plan.by_secondary[bus];
        holder_[bus] = plan.holder[bus];
    }
    top_ = plan.roots.empty() ? nullptr : plan.roots.front();
    const std::scoped_lock guard(rivals_lock_);
    rivals_ = plan.rivals;
}

// Null for a record that is not of this tree. A host bridge record may have the address of a
// bridge.
BridgeTree::Node *BridgeTree::node_of(const bridge_rec &bridge) const {
    if (bridge.bdf > BDF_HIGHEST)
        return nullptr;
    Node *node = by_id_[bridge.bdf & BDF_ROUTING_ID];
    if (node == &bridge)
        return node;
    node = holder_[pci::bus_of(bridge.bdf)];
    return node == &bridge ? node : nullptr;
}

}  // namespace host
