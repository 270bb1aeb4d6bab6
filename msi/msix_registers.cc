// The MSI-X vector table is device memory: each 32-bit word of it is read and written by one access
// of its own. Restoring disables MSI-X first and enables it last, by Message Control.
#include <cstdlib>

#include "module/base/guards.h"
#include "module/base/log.h"
#include "msi/config_access.h"
#include "msi/workers.h"
#include "platform/pci_access.h"
#include "platform/pci_regs.h"

namespace enable_features {

namespace {

// Guards the check and the growth of save areas.
pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;

constexpr std::uint16_t vectors_of(std::uint16_t ctrl) {
    return static_cast<std::uint16_t>(pci::get(ctrl, pci::MSIX_CONTROL_TABLE_SIZE) + 1);
}

// Returns null when the function has no MSI-X capability or its table is not mapped.
volatile msix_vector_t *table_of(const event_capset_t *caps) {
    if (caps->msix == nullptr || caps->msix->table == nullptr)
        return nullptr;
    return static_cast<volatile msix_vector_t *>(
        __atomic_load_n(&caps->msix->table->address, __ATOMIC_ACQUIRE));
}

// The host may unmap the table meanwhile, so the caller reads table_of() once and passes `table`
// on.
cap_place_t place_of(const event_capset_t *caps, const volatile msix_vector_t *table) {
    if (table == nullptr)
        return NO_PLACE;
    return {.bdf = caps->device->bdf, .offset = caps->msix->head.offset};
}

// Gives the save area room for `count` entries. Returns false without memory; the area stays as it
// was.
bool make_room(msix_registers_t *saved, std::uint16_t count) {
    const mutex_guard guard(lock);
    if (saved->vectors != nullptr && saved->num_vectors >= count)
        return true;
    LOG_INFO(4, "%s, %s MSI-X save area for %u vectors", "msix_reg_save",
             saved->vectors == nullptr ? "Allocate" : "Re-allocate", count);
    void *area = std::realloc(saved->vectors, count * sizeof(msix_vector_t));
    if (area == nullptr) {
        LOG_ERROR(0,
                  "%s, Failed to allocate memory for %u MSI-X vector table entries, skipping "
                  "capture",
                  "msix_reg_save", count);
        return false;
    }
    saved->vectors = static_cast<msix_vector_t *>(area);
    saved->num_vectors = count;
    return true;
}

// The data word is copied first, in both directions.
void copy_vector(volatile msix_vector_t &to, const volatile msix_vector_t &from) {
    to.data = from.data;
    to.addr = from.addr;
    to.addr_u = from.addr_u;
    to.control = from.control;
}

void restore_vectors(volatile msix_vector_t *table, const msix_registers_t *saved) {
    if (table == nullptr)
        return;
    const std::uint16_t count = vectors_of(saved->ctrl);
    for (std::uint16_t i = 0; i < count; i++)
        copy_vector(table[i], saved->vectors[i]);
}

void disable(const cap_place_t &cap) {
    const pci_err_t result = clear_cap_bits(cap, pci::MSIX_CONTROL, pci::MSIX_CONTROL_ENABLE);
    if (result != PCI_OK)
        LOG_WARNING(0, "%s, Unable to disable MSI-X capability for restore, %s", "msix_reg_restore",
                    pci_strerror(result));
}

}  // namespace

pci_err_t msix_reg_save(msix_registers_t *saved, const event_capset_t *caps) {
    LOG_INFO(4, "%s, Saving MSI-X registers", "msix_reg_save");
    const volatile msix_vector_t *table = table_of(caps);
    const pci_err_t result =
        read_cap_register(place_of(caps, table), pci::MSIX_CONTROL, saved->ctrl);
    if (result != PCI_OK) {
        LOG_ERROR(0, "%s, unable to save MSI-X ctrl reg, %s", "msix_reg_save",
                  pci_strerror(result));
        saved->ctrl = 0;
        return PCI_OK;
    }
    const std::uint16_t count = vectors_of(saved->ctrl);
    if (!make_room(saved, count)) {
        saved->ctrl = 0;
        return PCI_OK;
    }
    for (std::uint16_t i = 0; i < count; i++)
        copy_vector(saved->vectors[i], table[i]);
    return PCI_OK;
}

pci_err_t msix_reg_restore(const msix_registers_t *saved, const event_capset_t *caps) {
    if (saved->ctrl == 0) {
        LOG_ERROR(0, "%s, MSI-X register capture failed, skipping restore", "msix_reg_restore");
        return PCI_ERR_IO;
    }
    LOG_INFO(4, "%s, Restoring MSI-X registers", "msix_reg_restore");
    volatile msix_vector_t *table = table_of(caps);
    const cap_place_t cap = place_of(caps, table);
    disable(cap);
    restore_vectors(table, saved);
    const pci_err_t result = write_cap_register(cap, pci::MSIX_CONTROL, saved->ctrl);
    if (result != PCI_OK) {
        LOG_ERROR(0, "%s, unable to restore MSI-X ctrl reg, %s", "msix_reg_restore",
                  pci_strerror(result));
        return PCI_ERR_IO;
    }
    return PCI_OK;
}

}  // namespace enable_features
