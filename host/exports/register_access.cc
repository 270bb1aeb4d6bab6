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

}  // namespace

pci_err_t find_function(bdf_t bdf, const Function *&function) {
    if (bdf > BDF_HIGHEST)
        return PCI_ERR_INVALID;
    const Served *now = served();
    function = now ? now->machine.find(bdf) : nullptr;
    return function ? PCI_OK : PCI_ERR_NO_DEVICE;
}

pci_err_t read_config(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t &value) {
    const Function *function = nullptr;
    if (const pci_err_t error = find_function(bdf, function))
        return error;
    ConfigSpace &space = served()->machine.space();
    std::uint32_t read = 0;
    if (const pci_err_t error = space.read(function->id(), offset, width, read))
        return error;
    if (is_all_ones(read, width) && has_gone(space, function->id()))
        return PCI_ERR_NO_DEVICE;
    value = read;
    return PCI_OK;
}

pci_err_t write_config(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t value) {
    const Function *function = nullptr;
    if (const pci_err_t error = find_function(bdf, function))
        return error;
    return served()->machine.space().write(function->id(), offset, width, value);
}

}  // namespace host
