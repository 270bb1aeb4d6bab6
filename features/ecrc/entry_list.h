// The ECRC requests: one entry for each function that the configuration names and that can switch
// ECRC generation, ECRC checking or both. The list is the ECRC row's of the feature table, in the
// order in which the functions were first named.
#pragma once

#include <cstdint>

#include "feature_file/ecrc_value.h"
#include "module/base/bdf_index.h"
#include "module/base/entry_list.h"
#include "platform/capability.h"
#include "platform/types.h"

namespace enable_features {

struct ecrc_entry : list_entry_t {
    bdf_t bdf;                 // the key, as a whole: plain and ARI form are different keys
    pcie_cap_t *pcie_cap;      // owned
    aer_cap_t *aer_cap;        // owned; every ECRC operation goes through it
    std::uint8_t gen_capable;  // 1 if ECRC generation can be switched, else 0; one of the two is 1
    std::uint8_t chk_capable;  // the same for ECRC checking
    ecrc_setting gen;          // requests, written while the module starts only
    ecrc_setting chk;
};

// Indexes the list's entries by address; guarded by the row's lock.
extern bdf_index_t ecrc_index;

// Returns the entry recorded for `bdf`, or null. Takes the row's lock for the look-up only; the
// entry stays valid, because entries are never removed.
ecrc_entry *ecrc_find_entry(bdf_t bdf);

// Records the requests for a function. If the function has an entry already, each request that is
// not 0 replaces the earlier one, without an access. For a new entry the controls are probed: a
// control that is found enabled is disabled, and enabled again if no setting is requested for it.
// Returns 0; PCI_ERR_NO_MEMORY; PCI_ERR_NOT_SUPPORTED when the function has no PCI Express
// capability, no AER capability or neither control; or the error of reading a capability. Holds the
// row's lock throughout.
pci_err_t ecrc_add_or_update_entry(bdf_t bdf, ecrc_setting gen, ecrc_setting chk);

}  // namespace enable_features
