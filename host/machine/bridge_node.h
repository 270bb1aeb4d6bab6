// The inside of the bridge tree: a record with its locks, and the plan of a tree.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <span>
#include <unordered_map>
#include <vector>

#include "host/machine/bridge_tree.h"
#include "host/machine/bus_layout.h"

namespace host {

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

// A record with everything that is below it; the record's own lists show the part that is attached
// now.
struct BridgeTree::Node : bridge_rec {
    Node() : bridge_rec{} {
        pthread_mutex_init(&children_lock, nullptr);
        // Readers are preferred, because a thread that holds the lock for reading may take it again
        // while a writer waits.
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

    // Stores in place where there is room, because arrays that modules have seen stay and never
    // shrink.
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

    // Links from the last to the first, so that a walk meanwhile misses none of the children that
    // stay.
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

    // Modules read links and lists without the locks too, so each is stored as one atomic word.
    static void store_link(bridge_rec *&link, bridge_rec *value) {
        __atomic_store_n(&link, value, __ATOMIC_RELEASE);
    }
    void store_count(std::uint32_t value) {
        __atomic_store_n(&num_children, value, __ATOMIC_RELAXED);
    }

    std::atomic<int> secondary = -1;
    std::vector<Node *> all_children;              // ascending
    std::vector<std::unique_ptr<bdf_t[]>> arrays;  // those that devs has named; the last one is
                                                   // current
    std::size_t room = 0;                          // of the last array
    std::uint32_t all_devs = 0;                    // functions in the last array
    pcie_cap_t capability{};
    std::atomic<bool> attached = false;  // look-ups find it
};

// The tree that is to be shown, before modules see it.
struct BridgeTree::Plan {
    struct Entry {
        Node *node;
        int secondary = -1;
        std::vector<Node *> children{};  // ascending
        std::vector<bdf_t> devs{};       // ascending, conflicting bridges behind the others
    };

    Entry &add(Node &node) {
        of[&node] = entries.size();
        return entries.emplace_back(Entry{.node = &node});
    }
    Entry &entry(const Node *node) { return entries[of.at(node)]; }

    std::vector<Entry> entries;  // parents before children
    std::unordered_map<const Node *, std::size_t> of;
    std::vector<Node *> roots;  // ascending
    std::unordered_map<RoutingId, Node *> by_id;
    std::array<Node *, BUSES> by_secondary{};
    std::array<Node *, BUSES> holder{};
    std::vector<BusConflict> conflicts;
};

}  // namespace host
