// Making capability objects, and what their operations have in common.
#pragma once

#include "host/machine/capability_walk.h"
#include "platform/capability.h"

namespace host {

// The operations tables.
const pcie_cap_ops_t &pcie_operations();
const aer_cap_ops_t &aer_operations();
const rcec_cap_ops_t &rcec_operations();

// New object for a capability or an extended capability of the function at `bdf`, by its ID.
// Allocated with malloc; PCI_ERR_NO_MEMORY. `object` is set on success only.
pci_err_t new_capability(bdf_t bdf, CapPosition position, pci_cap_t **object);
pci_err_t new_ext_capability(bdf_t bdf, CapPosition position, pci_cap_t **object);

// Whether the caller announced its call in the object's first word.
inline bool is_announced(const pci_cap_t &head) {
    return __atomic_load_n(&head.call_word, __ATOMIC_RELAXED) == CAP_CALL_WORD;
}

}  // namespace host
