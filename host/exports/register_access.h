// Register access by address for the exports, with the errors that platform/pci_access.h promises.
#pragma once

#include <cstdint>

#include "host/machine/machine.h"
#include "platform/types.h"

namespace host {

// Finds the function at `bdf`. PCI_ERR_INVALID above BDF_HIGHEST, PCI_ERR_NO_DEVICE when there is
// none now.
pci_err_t find_function(bdf_t bdf, const Function *&function);

// Read and write `width` bytes. A read of a function that is gone gives PCI_ERR_NO_DEVICE instead
// of hardware's all ones; a write to it is lost without an error, so read back what matters.
pci_err_t read_config(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t &value);
pci_err_t write_config(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t value);

// Reads like read_config(), and may return what was read before, as ConfigSpace::recall() does.
pci_err_t recall_config(bdf_t bdf, unsigned offset, unsigned width, Changes changes,
                        std::uint32_t &value);

// Returns true when recall_config() may return what was read before.
bool recalls_registers();

// Writes a register on which no other one depends, so that what is known of others stays known.
pci_err_t write_alone(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t value);

// Reads a register of this type. `value` is set on success only.
template <typename Register>
pci_err_t read_register(bdf_t bdf, unsigned offset, Register &value) {
    std::uint32_t read = 0;
    if (const pci_err_t error = read_config(bdf, offset, sizeof(Register), read))
        return error;
    value = static_cast<Register>(read);
    return PCI_OK;
}

// Does the same through recall_config().
template <typename Register>
pci_err_t recall_register(bdf_t bdf, unsigned offset, Changes changes, Register &value) {
    std::uint32_t read = 0;
    if (const pci_err_t error = recall_config(bdf, offset, sizeof(Register), changes, read))
        return error;
    value = static_cast<Register>(read);
    return PCI_OK;
}

// Reads a register again that recall_register() gave as `value`, unless it was read then. Call
// right before it is written with some bits changed.
template <typename Register>
pci_err_t renew_register(bdf_t bdf, unsigned offset, Register &value) {
    return recalls_registers() ? read_register(bdf, offset, value) : PCI_OK;
}

// Write `value`; `after` is what the register then reads.
template <typename Register>
pci_err_t write_register(bdf_t bdf, unsigned offset, Register value, Register &after) {
    if (const pci_err_t error = write_config(bdf, offset, sizeof(Register), value))
        return error;
    return read_register(bdf, offset, after);
}
template <typename Register>
pci_err_t write_register_alone(bdf_t bdf, unsigned offset, Register value, Register &after) {
    if (const pci_err_t error = write_alone(bdf, offset, sizeof(Register), value))
        return error;
    return read_register(bdf, offset, after);
}

}  // namespace host
