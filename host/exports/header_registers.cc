// Reads and writes registers of the configuration header.
#include "host/exports/register_access.h"
#include "platform/pci_access.h"
#include "platform/pci_regs.h"

namespace {

using host::find_function;
using host::Function;
using host::read_register;
using host::write_register;

pci_err_t require_bridge(bdf_t bdf) {
    const Function *function = nullptr;
    if (const pci_err_t error = find_function(bdf, function))
        return error;
    return function->is_bridge() ? PCI_OK : PCI_ERR_NOT_SUPPORTED;
}

}  // namespace

// read_register() refuses all ones, which is what a function that does not answer reads as.
pci_err_t pci_device_read_vid(bdf_t bdf, std::uint16_t *vendor) {
    return read_register(bdf, pci::VENDOR_ID, *vendor);
}

pci_err_t pci_device_read_cmd(bdf_t bdf, std::uint16_t *value) {
    return read_register(bdf, pci::COMMAND, *value);
}

pci_err_t pci_device_read_status(bdf_t bdf, std::uint16_t *value) {
    return read_register(bdf, pci::STATUS, *value);
}

pci_err_t pci_device_read_sec_busnum(bdf_t bdf, std::uint8_t *bus) {
    const pci_err_t error = require_bridge(bdf);
    return error ? error : read_register(bdf, pci::SECONDARY_BUS_NUMBER, *bus);
}

pci_err_t pci_device_read_bridge_ctrl(bdf_t bdf, std::uint16_t *value) {
    const pci_err_t error = require_bridge(bdf);
    return error ? error : read_register(bdf, pci::BRIDGE_CONTROL, *value);
}

// bdf_of() gives BDF_NONE for a malformed handle, and an access to BDF_NONE is PCI_ERR_INVALID.
pci_err_t pci_device_write_cmd(bdf_token token, std::uint16_t value, std::uint16_t *after) {
    return write_register(pci::bdf_of(token), pci::COMMAND, value, *after);
}

pci_err_t pci_device_write_bridge_ctrl(bdf_token token, std::uint16_t value, std::uint16_t *after) {
    const bdf_t bdf = pci::bdf_of(token);
    const pci_err_t error = require_bridge(bdf);
    return error ? error : write_register(bdf, pci::BRIDGE_CONTROL, value, *after);
}
