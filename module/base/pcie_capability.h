// Reads a function's PCI Express capability into an object that the caller owns.
#pragma once

#include "module/base/guards.h"
#include "platform/pci_access.h"

namespace enable_features {

// Reads the PCI Express capability of `bdf`, which pci_device_find_capid() found at `index`, into
// `cap`, which frees it. Returns 0 or the code of the access. `cap` changes on success only.
inline pci_err_t read_pcie_cap_at(bdf_t bdf, int index, heap_ptr<pcie_cap_t> &cap) {
    pci_cap_t *object = nullptr;
    const pci_err_t result = pci_device_read_cap(bdf, &object, index);
    if (result == PCI_OK)
        cap.reset(reinterpret_cast<pcie_cap_t *>(object));
    return result;
}

// Finds the capability first; PCI_ERR_NOT_SUPPORTED when the function has none.
inline pci_err_t read_pcie_cap(bdf_t bdf, heap_ptr<pcie_cap_t> &cap) {
    const int index = pci_device_find_capid(bdf, CAPID_PCIE);
    return index >= 0 ? read_pcie_cap_at(bdf, index, cap) : PCI_ERR_NOT_SUPPORTED;
}

}  // namespace enable_features
