// Registers a feature's hooks with the host's bus configuration object.
#pragma once

#include "platform/buscfg.h"

namespace enable_features {

// The hooks of a feature; a null member means that the feature has no hook of that kind.
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

// Address of the host's "buscfg" variable; null until it has been found.
extern buscfg_t **buscfg_pp;

// Registers every hook that is not null, in the order of the host's kinds 1 to 8, and stops at the
// first failure; the hooks before it stay registered. Returns 0, PCI_ERR_NO_MEMORY,
// PCI_ERR_NO_BUSCFG_SYMBOL, PCI_ERR_NO_BUSCFG_OBJECT, or what the host's add_hook() returned. Takes
// a lock of its own for the first look-up only, and holds none while it calls the host.
pci_err_t install_buscfg_hooks(const buscfg_hooks_t *hooks);

}  // namespace enable_features
