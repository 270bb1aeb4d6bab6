// Registration of a feature's hooks with the host's bus configuration object.
#pragma once

#include "platform/buscfg.h"

namespace enable_features {

// A feature's hooks; null: no hook of that kind.
struct buscfg_hooks_t {
    reset_hook_t pre_reset;
    reset_hook_t post_reset;
    reconfig_hook_t pre_reconfig;
    reconfig_hook_t post_reconfig;
    insertion_hook_t pre_insertion;
    insertion_hook_t post_insertion;
    removal_hook_t pre_removal;
    removal_hook_t post_removal;
};

// The host's "buscfg" variable, once it has been found.
extern buscfg_t **buscfg_pp;

// Registers every hook that is present, in the host's kind order 1 to 8, and stops at the first
// that fails; earlier ones stay registered. 0, PCI_ERR_NO_MEMORY, PCI_ERR_NO_BUSCFG_SYMBOL,
// PCI_ERR_NO_BUSCFG_OBJECT, or what the host's add_hook() returned. Takes a lock of its own for the
// first look-up only, and holds none while it calls the host.
pci_err_t install_buscfg_hooks(const buscfg_hooks_t *hooks);

}  // namespace enable_features
