// Programs payload sizes along whole paths, and starts the feature.
//
// A hierarchy has one size: the first request in list order that the hierarchy's path_max allows
// decides it, and every other endpoint of that hierarchy gets the same.
#pragma once

#include "features/mps/endpoint_list.h"

namespace enable_features {

// Programs `size`, a supported one, into every bridge from the root port down to `bridge` (not
// null), and records it as the root port's cur_mps, whether or not the writes succeed. Returns the
// result of the write to `bridge`; a failure further up stops nothing. The caller holds the
// endpoint list's lock.
pci_err_t mps_set_hierarchy(bridge_rec *bridge, std::uint32_t size);

// Programs `size` (MPS_MAX: the root port's path_max) into the entry's path and then into every
// function of its device. Returns 0; PCI_ERR_INVALID for a size that is not supported and
// PCI_ERR_NO_DEVICE for an entry without a path, with nothing written; the error of the bridge
// directly above the device, which is then not written; else the result of
// mps_write_mps_all_funcs(). The caller holds the endpoint list's lock.
pci_err_t mps_set_ep_hierarchy(mps_entry *entry, std::uint32_t size);

// Does the same and logs the result.
pci_err_t mps_set_and_report(mps_entry *entry, std::uint32_t size);

// The decision of start-up on an entry's request. `size` is the size to program, or the refused
// one; it has no meaning otherwise.
struct mps_decision_t {
    enum {
        ALREADY_SET,  // an earlier entry has decided the hierarchy's size
        NO_REQUEST,
        REFUSED,  // above what the path allows, or no size at all
        PROGRAM,
    } action;
    std::uint32_t size;
};
mps_decision_t decide_mps(std::uint32_t request, std::uint32_t path_max, std::uint32_t cur_mps);

// Starts the MPS row: registers the hooks, then programs the list under its lock. Returns
// PCI_ERR_NOTHING_TO_DO when the list is empty; the error of the registration, with nothing
// programmed; else the result of the last attempt to program an entry, 0 when there was none.
pci_err_t mps_init(feature_t *row);

}  // namespace enable_features
