// Register access by address, for the exports: with the errors that platform/pci_access.h promises.
#pragma once

#include <cstdint>

#include "host/machine/machine.h"
#include "platform/types.h"

namespace host {

// The function at `bdf`, as it is known since the machine was read. PCI_ERR_INVALID above
// BDF_HIGHEST, PCI_ERR_NO_DEVICE when there is none now.
pci_err_t find_function(bdf_t bdf, const Function *&function);

// Reads and writes of `width` bytes. A read of a function that has gone meanwhile gives
// PCI_ERR_NO_DEVICE, not the all ones that hardware returns then; a write is lost without an error,
// so that what matters is read back.
pci_err_t read_config(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t &value);
pci_err_t write_config(bdf_t bdf, unsigned offset, unsigned width, std::uint32_t value);

// Of the register's own type. `value` is set on success only.
template <typename Register>
pci_err_t read_register(bdf_t bdf, unsigned offset, Register &value) {
    std::uint32_t read = 0;
    if (const pci_err_t error = read_config(bdf, offset, sizeof(Register), read))
        return error;
    value = static_cast<Register>(read);
    return PCI_OK;
}

// Writes `value`; `after` is what the register reads then.
template <typename Register>
pci_err_t write_register(bdf_t bdf, unsigned offset, Register value, Register &after) {
    if (const pci_err_t error = write_config(bdf, offset, sizeof(Register), value))
        return error;
    return read_register(bdf, offset, after);
}

}  // namespace host
