// The workers behind event_notification_reg_save() and _restore(), a pair for each capability, with
// the same results. `caps` is the function's capability set.
#pragma once

#include "msi/register_save.h"

namespace enable_features {

pci_err_t msi_reg_save(msi_registers_t *saved, const event_capset_t *caps);
pci_err_t msi_reg_restore(const msi_registers_t *saved, const event_capset_t *caps);

pci_err_t msix_reg_save(msix_registers_t *saved, const event_capset_t *caps);
pci_err_t msix_reg_restore(const msix_registers_t *saved, const event_capset_t *caps);

}  // namespace enable_features
