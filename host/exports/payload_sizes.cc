#include "host/exports/payload_sizes.h"

#include "host/base/address.h"
#include "host/exports/register_access.h"
#include "platform/capability.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

std::optional<unsigned> devctl_of(const Function &function) {
    const auto pcie = function.cap(CAPID_PCIE);
    if (!pcie || *pcie + pci::DEVCTL + pci::width_of(pci::DEVCTL) > pci::CONFIG_SIZE)
        return std::nullopt;
    return *pcie + pci::DEVCTL;
}

Bound bound_of(const Machine &machine, bdf_t port, DevctlReader read) {
    const Function *function = machine.find(port);
    std::uint16_t devctl = 0;
    const pci_err_t error = function ? read(*function, devctl) : PCI_ERR_NO_DEVICE;
    return {.port = port, .code = error ? LOWEST_PAYLOAD : payload_code(devctl), .error = error};
}

}  // namespace

const bridge_rec *topmost_bridge(const Machine &machine, RoutingId id) {
    const bridge_rec *record = machine.bridges().by_bdf(id);
    if (!record)
        record = machine.bridges().above(id);
    while (record && record->parent && record->parent->bridge_kind != BRIDGE_KIND_HOST)
        record = record->parent;
    return record && record->parent ? record : nullptr;
}

unsigned payload_code(std::uint16_t devctl) {
    return pci::get(devctl, pci::DEVCTL_MPS);
}

std::string bytes_text(unsigned code) {
    return std::to_string(pci::size_bytes(code)) + " bytes";
}

pci_err_t recall_devctl(const Function &function, std::uint16_t &devctl) {
    const auto offset = devctl_of(function);
    return offset ? recall_register(function.bdf, *offset, Changes::BY_WRITES, devctl)
                  : PCI_ERR_NOT_SUPPORTED;
}

pci_err_t read_devctl(const Function &function, std::uint16_t &devctl) {
    const auto offset = devctl_of(function);
    return offset ? read_register(function.bdf, *offset, devctl) : PCI_ERR_NOT_SUPPORTED;
}

pci_err_t write_payload(const Function &function, std::uint16_t devctl, unsigned code,
                        unsigned &after) {
    devctl = pci::set(devctl, pci::DEVCTL_MPS, code);
    const unsigned offset = *function.cap(CAPID_PCIE) + pci::DEVCTL;
    if (const pci_err_t error = write_register_alone(function.bdf, offset, devctl, devctl))
        return error;
    after = payload_code(devctl);
    return PCI_OK;
}

std::optional<Bound> lowest_bound(const Machine &machine, const std::vector<bdf_t> &ports,
                                  DevctlReader read) {
    std::optional<Bound> lowest;
    for (const bdf_t port : ports)
        if (const Bound bound = bound_of(machine, port, read); !lowest || bound.code < lowest->code)
            lowest = bound;
    return lowest;
}

std::optional<Bound> lowest_bound(const Machine &machine, const Function &function,
                                  DevctlReader read) {
    return lowest_bound(machine, machine.bridges().ports_above(function.bdf), read);
}

std::string port_text(const Bound &bound) {
    return ", while the port above, " + bdf_text(bound.port) +
           (bound.error ? ", cannot be read" : ", is set to " + bytes_text(bound.code));
}

std::string excess_text(const Function &function, unsigned code, const Bound &bound) {
    return bdf_text(function.bdf) + ": payload size of " + bytes_text(code) + port_text(bound);
}

}  // namespace host
