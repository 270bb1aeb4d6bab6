#include "host/machine/bridge_tree.h"

#include <atomic>

#include "host/machine/bus_layout.h"
#include "host/machine/machine.h"

namespace host {

namespace {

unsigned bus_of(bdf_t bdf) {
    return bdf >> 8 & 0xFF;
}

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

    void show_devs() {
        const WriteGuard guard(devs_lock);
        __atomic_store_n(&devs, all_devs.data(), __ATOMIC_RELEASE);
        __atomic_store_n(&num_devs, static_cast<std::uint32_t>(all_devs.size()), __ATOMIC_RELEASE);
    }

    void hide_devs() {
        const WriteGuard guard(devs_lock);
        __atomic_store_n(&num_devs, 0, __ATOMIC_RELEASE);
        __atomic_store_n(&devs, nullptr, __ATOMIC_RELEASE);
    }

    void show_children() {
        const MutexGuard guard(children_lock);
        bridge_rec **link = &children;
        for (Node *child : all_children) {
            child->attached = true;
            store_link(*link, child);
            link = &child->next_sibling;
        }
        store_link(*link, nullptr);
        store_count(static_cast<std::uint32_t>(all_children.size()));
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

    int secondary = -1;
    std::vector<Node *> all_children;  // ascending
    std::vector<bdf_t> all_devs;       // ascending, rivals behind the others
    pcie_cap_t capability{};
    std::atomic<bool> attached = true;  // whether lookups find it
};

BridgeTree::BridgeTree(std::span<const Function> functions, const BusLayout &layout)
    : by_id_(0x10000) {
    add_root_buses(functions, layout);
    add_bridges(functions, layout);
    add_devs(functions);
    add_rivals(functions);
    for (const auto &node : nodes_) {
        node->show_children();
        node->show_devs();
    }
}

BridgeTree::~BridgeTree() = default;

bridge_rec *BridgeTree::top() const {
    return roots_.empty() ? nullptr : roots_.front();
}

bridge_rec *BridgeTree::by_bdf(bdf_t bdf) const {
    Node *node = bdf <= BDF_HIGHEST ? by_id_[bdf & BDF_ROUTING_ID] : nullptr;
    return node && node->attached ? node : nullptr;
}

bridge_rec *BridgeTree::by_secondary(unsigned bus) const {
    Node *node = bus < BUSES ? by_secondary_[bus] : nullptr;
    return node && node->attached ? node : nullptr;
}

bridge_rec *BridgeTree::above(bdf_t bdf) const {
    Node *node = bdf <= BDF_HIGHEST ? holder_[bus_of(bdf)] : nullptr;
    return node && node->attached ? node : nullptr;
}

int BridgeTree::secondary_bus(const bridge_rec &bridge) const {
    const Node *node = node_of(bridge);
    return node ? node->secondary : -1;
}

bool BridgeTree::is_below(unsigned bus, const bridge_rec &bridge) const {
    const bridge_rec *record = bus < BUSES ? holder_[bus] : nullptr;
    while (record && record != &bridge)
        record = record->parent;
    return record != nullptr;
}

std::span<const BridgeTree::Rival> BridgeTree::rivals() const {
    return rivals_;
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

void BridgeTree::set_operations(const pcie_cap_ops_t &operations) {
    for (const auto &node : nodes_)
        node->capability.ops = &operations;
}

void BridgeTree::add_root_buses(std::span<const Function> functions, const BusLayout &layout) {
    for (const Function &function : functions) {
        const unsigned bus = bus_of(function.bdf);
        if (!function.answers || layout.holder[bus] || holder_[bus])
            continue;
        Node &root = add_node(bus << 8, HOST_BRIDGE_CLASS, BRIDGE_KIND_HOST);
        if (!roots_.empty())
            roots_.back()->next_sibling = &root;
        roots_.push_back(&root);
        holder_[bus] = &root;
    }
}

// Ascending: a bridge's parent is there before it, as its bus number is lower.
void BridgeTree::add_bridges(std::span<const Function> functions, const BusLayout &layout) {
    for (const Function &function : functions) {
        if (!function.answers || !function.is_bridge())
            continue;
        // Some root ports carry the class of a host bridge, where every walk up the tree would end.
        const std::uint32_t class_code =
            function.class_code == HOST_BRIDGE_CLASS ? PCI_BRIDGE_CLASS : function.class_code;
        Node &node = add_node(function.bdf, class_code, BRIDGE_KIND_PCI_TO_PCI);
        by_id_[function.id()] = &node;
        Node *parent = holder_[bus_of(function.bdf)];
        node.parent = parent;
        parent->all_children.push_back(&node);
        if (const auto offset = function.cap(CAPID_PCIE)) {
            node.capability.head = {0, function.bdf, CAPID_PCIE, *offset};
            node.pcie_cap = &node.capability;
        }
        if (layout.by_secondary[function.secondary] != &function)
            continue;
        node.secondary = function.secondary;
        by_secondary_[function.secondary] = &node;
        for (unsigned bus = function.secondary; bus <= function.subordinate; ++bus)
            if (layout.holder[bus] == &function)
                holder_[bus] = &node;
    }
}

BridgeTree::Node &BridgeTree::add_node(bdf_t bdf, std::uint32_t class_code, std::uint8_t kind) {
    Node &node = *nodes_.emplace_back(std::make_unique<Node>());
    node.bdf = bdf;
    node.class_code = class_code;
    node.bridge_kind = kind;
    return node;
}

// A bus that is nobody's secondary bus counts to the bridge whose range it is in: whatever is there
// is below that bridge, and limits what its hierarchy can be set to.
void BridgeTree::add_devs(std::span<const Function> functions) {
    for (const Function &function : functions) {
        if (!function.answers)
            continue;
        holder_[bus_of(function.bdf)]->all_devs.push_back(function.bdf);
    }
}

// Of two bridges with one secondary bus only one can be the record above it, and which of them
// leads there nobody can tell. The other counts as one more function on that bus: whichever it is,
// no payload size above what both support is chosen for what is there. Limit: the size is written
// to the one that has the bus only.
void BridgeTree::add_rivals(std::span<const Function> functions) {
    for (const Function &function : functions) {
        if (!function.answers || function.secondary == 0)
            continue;
        Node *holder = holder_[function.secondary];
        const Node *above = holder_[bus_of(function.bdf)];
        // On a root bus there is nothing to limit; what is on the holder's side counts already.
        if (!holder || holder == above || !holder->parent || holder == by_id_[function.id()])
            continue;
        holder->all_devs.push_back(function.bdf);
        rivals_.push_back({function.bdf, holder});
    }
}

// Null for a record that is not of this tree. A host bridge record may have the address of a
// bridge.
BridgeTree::Node *BridgeTree::node_of(const bridge_rec &bridge) const {
    if (bridge.bdf > BDF_HIGHEST)
        return nullptr;
    Node *node = by_id_[bridge.bdf & BDF_ROUTING_ID];
    if (node == &bridge)
        return node;
    node = holder_[bus_of(bridge.bdf)];
    return node == &bridge ? node : nullptr;
}

}  // namespace host
