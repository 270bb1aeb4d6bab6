// pci_hw: configuration accesses to the machine served.
#include <cstring>

#include "host/exports/register_access.h"
#include "platform/server.h"

namespace host {

namespace {

template <typename Register>
pci_err_t read_to(bdf_t bdf, std::uint32_t offset, void *value) {
    Register read = 0;
    if (const pci_err_t error = read_register(bdf, offset, read))
        return error;
    std::memcpy(value, &read, sizeof read);
    return PCI_OK;
}

template <typename Register>
pci_err_t write_from(bdf_t bdf, std::uint32_t offset, const void *value) {
    Register written = 0;
    std::memcpy(&written, value, sizeof written);
    return write_config(bdf, offset, sizeof written, written);
}

pci_err_t cfg_read(bdf_t bdf, std::uint32_t offset, std::uint32_t width, void *value,
                   std::uint32_t flags) {
    if (flags != 0)
        return PCI_ERR_INVALID;
    switch (width) {
    case 1:
        return read_to<std::uint8_t>(bdf, offset, value);
    case 2:
        return read_to<std::uint16_t>(bdf, offset, value);
    case 4:
        return read_to<std::uint32_t>(bdf, offset, value);
    default:
        return PCI_ERR_INVALID;
    }
}

pci_err_t cfg_write(bdf_t bdf, std::uint32_t offset, std::uint32_t width, const void *value,
                    std::uint32_t flags) {
    if (flags != 0)
        return PCI_ERR_INVALID;
    switch (width) {
    case 1:
        return write_from<std::uint8_t>(bdf, offset, value);
    case 2:
        return write_from<std::uint16_t>(bdf, offset, value);
    case 4:
        return write_from<std::uint32_t>(bdf, offset, value);
    default:
        return PCI_ERR_INVALID;
    }
}

constexpr pci_hw_ops_t operations = {.cfg_read = cfg_read, .cfg_write = cfg_write};

}  // namespace

}  // namespace host

const pci_hw_ops_t *pci_hw = &host::operations;
