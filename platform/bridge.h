// The host's bridge tree: one record for each bridge, below one record for each root bus. It is a
// tree whatever the hardware's bus numbers say: following parent or children always ends.
//
// Records belong to the host and are never freed; modules only read them. parent, bdf, class_code,
// bridge_kind and pcie_cap are fixed once a record exists and need no lock. The links, the counts
// and the functions in the lists are also read without the locks that guard them, by walks over the
// tree: a host that changes one stores it as one atomic word, under the lock. An array that `devs`
// has named is never freed, has room for as many functions as any before it, and is stored before a
// higher count.
#pragma once

#include <pthread.h>

#include "capability.h"
#include "types.h"

constexpr std::uint8_t BRIDGE_KIND_HOST = 0;
constexpr std::uint8_t BRIDGE_KIND_PCI_TO_PCI = 1;

struct bridge_rec {
    bridge_rec *next_sibling;       // next bridge with the same parent; guarded by the parent's
                                    // children_lock
    std::uint8_t bridge_kind;       // BRIDGE_KIND_*
    bdf_t bdf;                      // the bridge's own address; in a root bus's record, that of
                                    // device 0, function 0 on it
    std::uint32_t class_code;       // 24 bits, Class Code; HOST_BRIDGE_CLASS ends every walk up the
                                    // tree: only root buses' records have it, even where a port's
                                    // own register says so
    pcie_cap_t *pcie_cap;           // the bridge's PCI Express capability, null when it has none
    bridge_rec *parent;             // the upstream bridge; null at the top
    bridge_rec *children;           // first child bridge; null when there is none
    std::uint32_t num_children;     // number of child bridges
    pthread_mutex_t children_lock;  // guards children and num_children; parent before child
    pthread_rwlock_t devs_lock;     // guards num_devs and devs; a thread that holds it for reading
                                    // may take it for reading again, also while a writer waits
    // The functions on the secondary bus, bridges among them, and on buses of the bridge's range
    // that are no bridge's secondary bus (virtual functions).
    std::uint32_t num_devs;
    const bdf_t *devs;  // their addresses, as pci_device_find() gives them
};

extern "C" {

// Look-ups. `start` is null (search the whole tree). They return null when there is no such bridge.
//
// Returns the upstream bridge of the function `bdf`: the one whose secondary side holds it; for a
// function on a root bus, that bus's host bridge record. BDF_NONE gives the first record of the
// topmost sibling list, from which next_sibling and children lead to every bridge. Modules look
// this up with dlsym.
HOPLAR_EXPORT bridge_rec *find_parent_bridge(bridge_rec *start, bdf_t bdf);

// Returns the bridge whose own address is `bdf` (Header Type, Header Layout 1 and 2). Modules look
// this up with dlsym.
HOPLAR_EXPORT bridge_rec *find_bridge_bdf(bridge_rec *start, bdf_t bdf);

// Returns the bridge whose Secondary Bus Number is `bus`; null for a root bus.
HOPLAR_EXPORT bridge_rec *find_bridge_sec_busnum(bridge_rec *start, std::uint32_t bus);

// Returns the Secondary Bus Number of a bridge, or the bus of a root bus's record; negative when it
// is not available. `value` came with a hook call: 0 asks for the number in the host's record, 1 to
// 255 is the number itself, and anything above is not available.
HOPLAR_EXPORT int cached_param_get_sec_busnum(bridge_rec *bridge, std::uint32_t value);

}  // extern "C"
