// A function's PCI Express capability, as an object of one's own.
#pragma once

#include "module/guards.h"
#include "platform/pci_access.h"

namespace enable_features {

// Reads the PCI Express capability of `bdf` into `cap`, which frees it. 0; PCI_ERR_NOT_SUPPORTED
// when the function has none; else the code of the access. `cap` changes on success only.
inline pci_err_t read_pcie_cap(bdf_t bdf, heap_ptr<pcie_cap_t> &cap) {
    const int index = pci_device_find_capid(bdf, CAPID_PCIE);
    if (index < 0)
        return PCI_ERR_NOT_SUPPORTED;
    pci_cap_t *object = nullptr;
    const pci_err_t result = pci_device_read_cap(bdf, &object, index);
    if (result == PCI_OK)
        cap.reset(reinterpret_cast<pcie_cap_t *>(object));
    return result;
}

}  // namespace enable_features
