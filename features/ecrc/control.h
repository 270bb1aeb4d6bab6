// ECRC as a feature: its start, its hook, and the application of one entry's wishes.
#pragma once

#include "features/ecrc/entry_list.h"
#include "module/base/feature.h"

namespace enable_features {

// Apply the entry's wish for generation, or for checking; the wish is not 0. 0 (changed),
// PCI_ERR_ALREADY, PCI_ERR_NOT_SUPPORTED (the function was not touched), or the operation's error.
// Take no lock.
pci_err_t set_ecrc_gen(ecrc_entry *entry);
pci_err_t set_ecrc_chk(ecrc_entry *entry);

// Registers the hook and applies every wish, in list order, under the row's lock.
// PCI_ERR_NOTHING_TO_DO without entries; the registration's error, nothing applied then; else what
// the last wish gave, PCI_ERR_ALREADY counting as 0.
pci_err_t ecrc_init(feature_t *row);

// Post-insertion hook: applies the wishes of every function below `bridge`, unless `status` tells
// that the insertion failed. Holds each bridge's devs_lock for reading while it applies those of
// the functions on its secondary bus, and takes the row's lock inside it.
void post_insertion_ecrc_enable(bridge_rec *bridge, std::uint32_t value, int status);

}  // namespace enable_features
