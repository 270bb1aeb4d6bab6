// Restoring disables MSI first and writes Message Control last, so that a function never sends a
// message with half of its address or data in place.
#include "module/base/log.h"
#include "msi/config_access.h"
#include "msi/workers.h"
#include "platform/pci_access.h"
#include "platform/pci_regs.h"

namespace enable_features {

namespace {

// The registers that a capability has, and their offsets, as its Message Control tells. Message
// Data is captured together with the 16 bits after it.
struct msi_layout_t {
    bool has_upper_address;
    bool has_mask;
    std::uint32_t data;
    std::uint32_t mask;
};

constexpr msi_layout_t layout_of(std::uint16_t ctrl) {
    const bool is_64_bit = (ctrl & pci::MSI_CONTROL_64_BIT) != 0;
    return {.has_upper_address = is_64_bit,
            .has_mask = (ctrl & pci::MSI_CONTROL_PER_VECTOR_MASKING) != 0,
            .data = is_64_bit ? pci::MSI_DATA_64_BIT : pci::MSI_DATA,
            .mask = is_64_bit ? pci::MSI_MASK_BITS_64_BIT : pci::MSI_MASK_BITS};
}

cap_place_t place_of(const event_capset_t *caps) {
    if (caps->msi == nullptr)
        return NO_PLACE;
    return {.bdf = caps->device->bdf, .offset = caps->msi->head.offset};
}

template <typename Register>
pci_err_t save(const cap_place_t &cap, std::uint32_t offset, const char *name, Register &value) {
    const pci_err_t result = read_cap_register(cap, offset, value);
    if (result != PCI_OK)
        LOG_ERROR(0, "%s, unable to save MSI %s reg, %s", "msi_reg_save", name,
                  pci_strerror(result));
    return result;
}

// Returns false when the write failed.
template <typename Register>
bool restore(const cap_place_t &cap, std::uint32_t offset, const char *name, Register value) {
    const pci_err_t result = write_cap_register(cap, offset, value);
    if (result != PCI_OK)
        LOG_ERROR(0, "%s, unable to restore MSI %s reg, %s", "msi_reg_restore", name,
                  pci_strerror(result));
    return result == PCI_OK;
}

void disable(const cap_place_t &cap) {
    const pci_err_t result = clear_cap_bits(cap, pci::MSI_CONTROL, pci::MSI_CONTROL_ENABLE);
    if (result != PCI_OK)
        LOG_WARNING(0, "%s, Unable to disable MSI capability for restore, %s", "msi_reg_restore",
                    pci_strerror(result));
}

bool restore_all(const cap_place_t &cap, const msi_registers_t *saved) {
    const msi_layout_t layout = layout_of(saved->ctrl);
    return restore(cap, pci::MSI_ADDRESS, "addr", saved->addr) &&
           (!layout.has_upper_address ||
            restore(cap, pci::MSI_UPPER_ADDRESS, "addr_u", saved->addr_u)) &&
           restore(cap, layout.data, "data", saved->data) &&
           (!layout.has_mask || restore(cap, layout.mask, "mask", saved->mask)) &&
           restore(cap, pci::MSI_CONTROL, "ctrl", saved->ctrl);
}

}  // namespace

pci_err_t msi_reg_save(msi_registers_t *saved, const event_capset_t *caps) {
    LOG_INFO(4, "%s, Saving MSI registers", "msi_reg_save");
    const cap_place_t cap = place_of(caps);
    if (save(cap, pci::MSI_CONTROL, "ctrl", saved->ctrl) != PCI_OK) {
        saved->ctrl = 0;
        return PCI_OK;
    }
    const msi_layout_t layout = layout_of(saved->ctrl);
    save(cap, pci::MSI_ADDRESS, "addr", saved->addr);
    if (layout.has_upper_address)
        save(cap, pci::MSI_UPPER_ADDRESS, "addr_u", saved->addr_u);
    else
        saved->addr_u = 0;
    save(cap, layout.data, "data", saved->data);
    if (layout.has_mask)
        save(cap, layout.mask, "mask", saved->mask);
    else
        saved->mask = 0;
    return PCI_OK;
}

pci_err_t msi_reg_restore(const msi_registers_t *saved, const event_capset_t *caps) {
    if (saved->ctrl == 0) {
        LOG_ERROR(0, "%s, MSI register capture failed, skipping restore", "msi_reg_restore");
        return PCI_ERR_IO;
    }
    LOG_INFO(4, "%s, Restoring MSI registers", "msi_reg_restore");
    const cap_place_t cap = place_of(caps);
    disable(cap);
    return restore_all(cap, saved) ? PCI_OK : PCI_ERR_IO;
}

}  // namespace enable_features
