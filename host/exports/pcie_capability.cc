// The operations of PCI Express capability objects.
#include "host/exports/capability_objects.h"
#include "host/exports/complete_hierarchies.h"
#include "host/exports/payload_guard.h"
#include "host/exports/register_access.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

// Begins like enter(), for registers that only functions with a link have.
pci_err_t enter_link(const pcie_cap_t *cap) {
    const Function *function = nullptr;
    if (const pci_err_t error = enter(cap->head, function))
        return error;
    if (function->port_type == PORT_TYPE_RCIEP || function->port_type == PORT_TYPE_EVENT_COLLECTOR)
        return PCI_ERR_NOT_SUPPORTED;
    return PCI_OK;
}

// The capability must lie in the first 256 bytes, because the bytes behind belong to extended
// capabilities.
bool has_register(const pcie_cap_t *cap, unsigned offset, std::size_t size) {
    return cap->head.offset + offset + size <= pci::CONFIG_SIZE;
}

template <typename Register>
pci_err_t read_at(const pcie_cap_t *cap, unsigned offset, Register *value) {
    if (!has_register(cap, offset, sizeof *value))
        return PCI_ERR_NOT_SUPPORTED;
    return read_register(cap->head.bdf, cap->head.offset + offset, *value);
}

template <typename Register>
pci_err_t write_at(const pcie_cap_t *cap, unsigned offset, Register *value) {
    if (!has_register(cap, offset, sizeof *value))
        return PCI_ERR_NOT_SUPPORTED;
    return write_register(cap->head.bdf, cap->head.offset + offset, *value, *value);
}

int find_ext_cap(pcie_cap_t *cap, std::uint16_t ext_id) {
    const Function *function = nullptr;
    if (enter(cap->head, function) != PCI_OK)
        return -1;
    return index_of_capability(function->ext_caps, ext_id);
}

pci_err_t read_ext_cap(pcie_cap_t *cap, pci_cap_t **object, int index) {
    const Function *function = nullptr;
    if (const pci_err_t error = enter(cap->head, function))
        return error;
    if (index < 0 || static_cast<std::size_t>(index) >= function->ext_caps.size())
        return PCI_ERR_INVALID;
    const CapPosition position = function->ext_caps[static_cast<std::size_t>(index)];
    return new_ext_capability(cap->head.bdf, position, object);
}

pci_err_t get_port_type(pcie_cap_t *cap, std::uint8_t *port_type) {
    const Function *function = nullptr;
    if (const pci_err_t error = enter(cap->head, function))
        return error;
    if (!function->port_type)
        return PCI_ERR_NOT_SUPPORTED;
    *port_type = *function->port_type;
    return PCI_OK;
}

pci_err_t read_devcap(pcie_cap_t *cap, std::uint32_t *value) {
    const Function *function = nullptr;
    const pci_err_t error = enter(cap->head, function);
    if (error)
        return error;
    if (!has_register(cap, pci::DEVCAP, sizeof *value))
        return PCI_ERR_NOT_SUPPORTED;
    return recall_register(cap->head.bdf, cap->head.offset + pci::DEVCAP, Changes::NEVER, *value);
}

// Read anew, because modules write what they have read with some bits changed, and drivers change
// others.
pci_err_t read_devctl(pcie_cap_t *cap, std::uint16_t *value) {
    const Function *function = nullptr;
    if (const pci_err_t error = enter(cap->head, function))
        return error;
    if (const pci_err_t error = read_at(cap, pci::DEVCTL, value))
        return error;
    note_given_payload(*function, *value);
    return PCI_OK;
}

pci_err_t write_devctl(pcie_cap_t *cap, std::uint32_t reserved, std::uint16_t *value) {
    const Function *function = nullptr;
    if (reserved != 0)
        return PCI_ERR_INVALID;
    if (const pci_err_t error = enter(cap->head, function))
        return error;
    if (const pci_err_t error = admit_payload(*function, *value))
        return error;
    if ((*value & pci::DEVCTL_INITIATE_FLR) != 0 || !has_register(cap, pci::DEVCTL, sizeof *value))
        return write_at(cap, pci::DEVCTL, value);
    return write_register_alone(cap->head.bdf, cap->head.offset + pci::DEVCTL, *value, *value);
}

pci_err_t read_linkcap(pcie_cap_t *cap, std::uint32_t *value) {
    const pci_err_t error = enter_link(cap);
    return error ? error : read_at(cap, pci::LINKCAP, value);
}

pci_err_t read_linkctl(pcie_cap_t *cap, std::uint16_t *value) {
    const pci_err_t error = enter_link(cap);
    return error ? error : read_at(cap, pci::LINKCTL, value);
}

pci_err_t write_linkctl(pcie_cap_t *cap, bdf_token token, std::uint16_t *value) {
    if (!pci::names_function(token, cap->head.bdf))
        return PCI_ERR_INVALID;
    const pci_err_t error = enter_link(cap);
    return error ? error : write_at(cap, pci::LINKCTL, value);
}

constexpr pcie_cap_ops_t operations = {
    .find_ext_cap = find_ext_cap,
    .read_ext_cap = read_ext_cap,
    .get_port_type = get_port_type,
    .read_devcap = read_devcap,
    .read_devctl = read_devctl,
    .write_devctl = write_devctl,
    .read_linkcap = read_linkcap,
    .read_linkctl = read_linkctl,
    .write_linkctl = write_linkctl,
};

}  // namespace

const pcie_cap_ops_t &pcie_operations() {
    return operations;
}

}  // namespace host
