#include "msi/register_save.h"

#include "msi/workers.h"

namespace enable_features {

pci_err_t event_notification_reg_save(msi_save_t *record, event_notification_t *device,
                                      std::uint8_t capability) {
    switch (capability) {
    case CAPID_MSI:
        return msi_reg_save(&record->msi, device->capset);
    case CAPID_MSIX:
        return msix_reg_save(&record->msix, device->capset);
    default:
        return PCI_ERR_INVALID;
    }
}

pci_err_t event_notification_reg_restore(msi_save_t *record, event_notification_t *device,
                                         std::uint8_t capability) {
    switch (capability) {
    case CAPID_MSI:
        return msi_reg_restore(&record->msi, device->capset);
    case CAPID_MSIX:
        return msix_reg_restore(&record->msix, device->capset);
    default:
        return PCI_ERR_INVALID;
    }
}

}  // namespace enable_features
