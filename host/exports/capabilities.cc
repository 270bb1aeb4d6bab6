// Capabilities by index, at the positions that were read with the machine.
#include <algorithm>
#include <cstdlib>
#include <new>

#include "host/exports/capability_objects.h"
#include "host/exports/msix_tables.h"
#include "host/exports/register_access.h"
#include "platform/pci_access.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

// Allocates a zeroed object, which its owner releases with free(); null without memory.
template <typename Object>
Object *allocate() {
    void *memory = std::calloc(1, sizeof(Object));
    return memory ? new (memory) Object{} : nullptr;
}

pci_err_t hand_over(pci_cap_t *head, bdf_t bdf, CapPosition position, pci_cap_t **object) {
    head->bdf = bdf;
    head->id = position.id;
    head->offset = position.offset;
    *object = head;
    return PCI_OK;
}

// Makes an object of a type that has an operations table.
template <typename Object, typename Operations>
pci_err_t new_object(bdf_t bdf, CapPosition position, const Operations &operations,
                     pci_cap_t **object) {
    Object *cap = allocate<Object>();
    if (!cap)
        return PCI_ERR_NO_MEMORY;
    cap->ops = &operations;
    return hand_over(&cap->head, bdf, position, object);
}

pci_err_t new_bare_object(bdf_t bdf, CapPosition position, pci_cap_t **object) {
    pci_cap_t *cap = allocate<pci_cap_t>();
    return cap ? hand_over(cap, bdf, position, object) : PCI_ERR_NO_MEMORY;
}

pci_err_t new_msi_object(bdf_t bdf, CapPosition position, pci_cap_t **object) {
    msi_cap_t *cap = allocate<msi_cap_t>();
    return cap ? hand_over(&cap->head, bdf, position, object) : PCI_ERR_NO_MEMORY;
}

pci_err_t new_msix_object(bdf_t bdf, CapPosition position, pci_cap_t **object) {
    const msix_table_t *table = nullptr;
    if (const pci_err_t error = find_msix_table(bdf, position.offset, table))
        return error;
    msix_cap_t *cap = allocate<msix_cap_t>();
    if (!cap)
        return PCI_ERR_NO_MEMORY;
    cap->table = table;
    return hand_over(&cap->head, bdf, position, object);
}

}  // namespace

pci_err_t enter(const pci_cap_t &head, const Function *&function) {
    if (__atomic_load_n(&head.call_word, __ATOMIC_RELAXED) != CAP_CALL_WORD)
        return PCI_ERR_INVALID;
    if (const pci_err_t error = find_function(head.bdf, function))
        return error;
    const CapPosition position{head.id, head.offset};
    const auto &list = head.offset < pci::EXT_CAPS ? function->caps : function->ext_caps;
    return std::ranges::find(list, position) != list.end() ? PCI_OK : PCI_ERR_NOT_SUPPORTED;
}

pci_err_t new_capability(bdf_t bdf, CapPosition position, pci_cap_t **object) {
    switch (position.id) {
    case CAPID_PCIE:
        return new_object<pcie_cap_t>(bdf, position, pcie_operations(), object);
    case CAPID_MSI:
        return new_msi_object(bdf, position, object);
    case CAPID_MSIX:
        return new_msix_object(bdf, position, object);
    default:
        return new_bare_object(bdf, position, object);
    }
}

pci_err_t new_ext_capability(bdf_t bdf, CapPosition position, pci_cap_t **object) {
    switch (position.id) {
    case EXT_CAPID_AER:
        return new_object<aer_cap_t>(bdf, position, aer_operations(), object);
    case EXT_CAPID_RCEC:
        return new_object<rcec_cap_t>(bdf, position, rcec_operations(), object);
    default:
        return new_bare_object(bdf, position, object);
    }
}

}  // namespace host

int pci_device_get_type(bdf_t bdf, std::uint32_t *port_type) {
    const host::Function *function = nullptr;
    if (host::find_function(bdf, function) != PCI_OK || !function->port_type)
        return 0;
    *port_type = *function->port_type;
    return DEV_TYPE_PCIE;
}

int pci_device_find_capid(bdf_t bdf, std::uint8_t capid) {
    const host::Function *function = nullptr;
    if (host::find_function(bdf, function) != PCI_OK)
        return -1;
    return host::index_of_capability(function->caps, capid);
}

pci_err_t pci_device_read_cap(bdf_t bdf, pci_cap_t **object, int index) {
    const host::Function *function = nullptr;
    if (const pci_err_t error = host::find_function(bdf, function))
        return error;
    if (index < 0 || static_cast<std::size_t>(index) >= function->caps.size())
        return PCI_ERR_INVALID;
    return host::new_capability(bdf, function->caps[static_cast<std::size_t>(index)], object);
}

bool pci_device_is_multi_func(bdf_t bdf) {
    const host::Function *function = nullptr;
    const bdf_t function_0 = bdf & ~(bdf & BDF_ARI_FLAG ? 0xFFu : 0x7u);
    return host::find_function(function_0, function) == PCI_OK && function->multi_function;
}
