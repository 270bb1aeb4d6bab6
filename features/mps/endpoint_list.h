// The managed endpoint devices, each with the payload size that the configuration requests.
//
// The list is the MPS row's in the feature table. It is built once, on first use, and no entry is
// added later. Entries are never freed, so a pointer to one stays valid without the lock.
#pragma once

#include <pthread.h>

#include "features/mps/root_port_list.h"
#include "module/base/bdf_index.h"
#include "module/base/feature.h"
#include "platform/bridge.h"
#include "platform/types.h"

namespace enable_features {

// One entry stands for all functions of a device.
struct mps_entry : list_entry_t {
    rp_entry *rp;          // the device's root port; null when that port has no entry
    bridge_rec *upstream;  // the bridge whose secondary bus the device is on; null when the host
                           // has none
    bdf_t bdf;             // the device's key: see device_key()
    std::uint32_t mps;     // requested bytes, 0 = no request, or MPS_MAX; guarded by the list's
                           // lock
};

// Returns a device's key: the address of its function 0, in the form of `bdf`.
constexpr bdf_t device_key(bdf_t bdf) {
    return pci::function_of(bdf) == 0 ? bdf : pci::function_0_of(bdf);
}

// Returns true when the path to the entry's device is known, from the root port down. An entry
// without a path is kept in the list but never programmed.
constexpr bool has_path(const mps_entry *entry) {
    return entry->rp != nullptr && entry->upstream != nullptr;
}

// Returns the list, which is in the MPS row.
inline entry_list_t &ep_list() {
    return feature_list[ROW_MPS].list;
}

extern pthread_once_t ep_list_once;

// Indexes the list's entries by device key; guarded by the row's lock. Empty before the build.
extern bdf_index_t device_index;

// Builds the list; runs only through pthread_once(&ep_list_once, ...). Resets the list and
// initialises its lock first, so no thread may hold it. Builds the root-port list on the way.
void ep_list_once_init();

// Returns the entry of the device of `bdf` (any of its functions), or null. Builds the list first,
// if need be. Takes the list's lock for the look-up.
mps_entry *mps_find_entry(bdf_t bdf);

// Records `mps` as the requested size of the device of `bdf`, or of every entry (BDF_NONE). Builds
// the list first, if need be, and takes its lock. Returns 0, also when no entry matches;
// PCI_ERR_INVALID when `mps` is neither MPS_MAX nor a supported size.
pci_err_t mps_update_entry(bdf_t bdf, std::uint32_t mps);

// Steps of a walk over the list; the caller holds the list's lock.
inline mps_entry *first_mps_entry(const entry_list_t &list) {
    return static_cast<mps_entry *>(list.first);
}

inline mps_entry *next_mps_entry(const mps_entry *entry) {
    return static_cast<mps_entry *>(entry->next);
}

}  // namespace enable_features
