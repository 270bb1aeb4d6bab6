// Making capability objects, and what their operations have in common.
#pragma once

#include "host/machine/machine.h"
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

// How every operation of an object begins. PCI_ERR_INVALID for a call that was not announced in the
// object's first word; PCI_ERR_NO_DEVICE when no function is there any more; PCI_ERR_NOT_SUPPORTED
// when another one has come to its address, which has no such capability at that place.
pci_err_t enter(const pci_cap_t &head, const Function *&function);

}  // namespace host
