// Makes capability objects, and checks their calls.
#pragma once

#include "host/machine/machine.h"
#include "platform/capability.h"

namespace host {

// The operations tables.
const pcie_cap_ops_t &pcie_operations();
const aer_cap_ops_t &aer_operations();
const rcec_cap_ops_t &rcec_operations();

// Make a new object for a capability or an extended capability of the function at `bdf`, by its ID.
// It is allocated with malloc; PCI_ERR_NO_MEMORY. `object` is set on success only.
pci_err_t new_capability(bdf_t bdf, CapPosition position, pci_cap_t **object);
pci_err_t new_ext_capability(bdf_t bdf, CapPosition position, pci_cap_t **object);

// Begins every operation of an object. Returns PCI_ERR_INVALID for a call that was not announced in
// the object's first word; PCI_ERR_NO_DEVICE when the function is gone; PCI_ERR_NOT_SUPPORTED when
// another function with no such capability at that place has come to its address.
pci_err_t enter(const pci_cap_t &head, const Function *&function);

}  // namespace host
