// The start of the ECRC feature, its hook, and the programming of one entry's requests.
#pragma once

#include "features/ecrc/entry_list.h"
#include "module/base/feature.h"

namespace enable_features {

// Program the entry's request for generation, or for checking; the request must not be 0. Return 0
// (changed), PCI_ERR_ALREADY, PCI_ERR_NOT_SUPPORTED (the function was not accessed), or the
// operation's error. Take no lock.
pci_err_t set_ecrc_gen(ecrc_entry *entry);
pci_err_t set_ecrc_chk(ecrc_entry *entry);

// Registers the hook and programs every request, in list order, under the row's lock. Returns
// PCI_ERR_NOTHING_TO_DO without entries; the registration's error, with nothing programmed; else
// the result of the last request, with PCI_ERR_ALREADY counted as 0.
pci_err_t ecrc_init(feature_t *row);

// Post-insertion hook: programs the requests of every function below `bridge`, unless `status` says
// that the insertion failed. Holds each bridge's devs_lock for reading while it programs the
// functions on its secondary bus, and takes the row's lock inside it.
void post_insertion_ecrc_enable(bridge_rec *bridge, std::uint32_t value, int status);

}  // namespace enable_features
