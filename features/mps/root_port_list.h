// The managed root ports, each with the largest payload size that its whole hierarchy supports.
//
// The list is built once, on first use, and never again: a hot-plug event does not change it. Of an
// entry only cur_mps changes. Entries are never freed, so a pointer to one stays valid without a
// lock.
#pragma once

#include <pthread.h>

#include "module/base/entry_list.h"
#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// The path maximum of a hierarchy in which no function has reported a size.
constexpr std::uint32_t NO_PATH_MAX = 0xFFFF'FFFF;

struct rp_entry : list_entry_t {
    std::uint32_t path_max;  // bytes, or NO_PATH_MAX
    std::uint32_t cur_mps;   // bytes last programmed, 0 = never; use the two functions below
    bridge_rec *bridge;      // the root port's record, the key
};

// The lock guards the list's head and links. It is taken after the endpoint list's lock, never
// before, and held for a walk or an append alone.
extern entry_list_t rp_list;
extern pthread_once_t rp_list_init_once;

// Builds the list; runs only through pthread_once(&rp_list_init_once, ...). Resets the list and
// initialises its lock first. Takes the bridges' locks: see find_rp_mps().
void rp_list_init_once_init();

// Lowers `*path_max` to the smallest Max_Payload_Size Supported, in bytes, of `bridge`, the
// functions on its secondary bus and everything below. Sizes that cannot be read or are reserved do
// not count. Holds each bridge's children_lock while it is below it, parent before child, and after
// that, for reading, its devs_lock.
void find_rp_mps(bridge_rec *bridge, std::uint32_t *path_max);

// Appends an entry; builds the list first, if need be. Returns 0 or PCI_ERR_NO_MEMORY.
pci_err_t add_rp_entry(bridge_rec *bridge, std::uint32_t path_max);

// Returns the entry of a bridge (not null); null when the bridge is no managed root port. Builds
// the list first, if need be.
rp_entry *find_rp_entry(bridge_rec *bridge);

// cur_mps is written under the endpoint list's lock, but the reset hook reads it without, so both
// go through atomic accesses.
inline std::uint32_t cur_mps_of(const rp_entry *entry) {
    return __atomic_load_n(&entry->cur_mps, __ATOMIC_RELAXED);
}

inline void set_cur_mps(rp_entry *entry, std::uint32_t size) {
    __atomic_store_n(&entry->cur_mps, size, __ATOMIC_RELAXED);
}

}  // namespace enable_features
