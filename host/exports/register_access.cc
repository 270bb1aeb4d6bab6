#include "host/exports/register_access.h"

#include "host/exports/serve.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

bool is_all_ones(std::uint32_t value, unsigned width) {
    return value == 0xFFFF'FFFFu >> (32 - 8 * width);
}

// Returns true when the function does not answer any more: its Vendor ID reads all ones too.
bool has_gone(ConfigSpace &space, RoutingId id) {
    std::uint32_t vendor = 0;
    return space.read(id, pci::VENDOR_ID, 2, vendor) == PCI_OK && vendor == pci::VENDOR_ID_NONE;
}

// Calls `access`, which reads from a function's space.
template <typename Access>
pci_err_t read_through(bdf_t bdf, unsigned width, std::uint32_t &value, Access access) {
    const Function *function = nullptr;
    if (const pci_err_t error = find_function(bdf, function))
        return error;
    ConfigSpace &space = served()->machine.space();
    std::uint32_t read = 0;
    if (const pci_err_t error = access(space, function->id(), read))
        return error;
    if (is_all_ones(read, width) && has_gone(space, function->id()))
        return PCI_ERR_NO_DEVICE;
    value = read;
    return PCI_OK;
}

}  // namespace

pci_err_t find_function(bdf_t bdf, const Function *&function) {
    if (bdf > BDF_HIGHEST)
        return PCI_ERR_INVALID;
    const Served *now = served();
    function = now ? now->machine.find(bdf) : nullptr;
    return function ? PCI_OK : PCI_ERR_NO_DEVICE;
}

pci_err_t read_config(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t &value) {
    return read_through(bdf, width, value, [&](ConfigSpace &space, RoutingId id, auto &read) {
        return space.read(id, offset, width, read);
    });
}

pci_err_t recall_config(bdf_t bdf, unsigned offset, unsigned width, Changes changes,
                        std::uint32_t &value) {
    return read_through(bdf, width, value, [&](ConfigSpace &space, RoutingId id, auto &read) {
        return space.recall(id, offset, width, changes, read);
    });
}

bool recalls_registers() {
    const Served *const now = served();
    return now && now->machine.space().keeps_registers();
}

// A write may change registers elsewhere: a reset bit changes all below a bridge.
pci_err_t write_config(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t value) {
    const pci_err_t error = write_alone(bdf, offset, width, value);
    if (Served *const now = served())
        now->machine.space().look_again();
    return error;
}

pci_err_t write_alone(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t value) {
    const Function *function = nullptr;
    if (const pci_err_t error = find_function(bdf, function))
        return error;
    return served()->machine.space().write(function->id(), offset, width, value);
}

}  // namespace host
