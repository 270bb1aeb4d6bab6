// The operation of root complex event collector objects, which tells the functions that a collector
// serves.
#include "host/exports/capability_objects.h"
#include "host/exports/register_access.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

// Looks into Association Bitmap for the collector's own bus; an ARI function counts as device 0.
bool in_bitmap(const pci_cap_t &head, bdf_t bdf) {
    std::uint32_t bitmap = 0;
    if (read_register(head.bdf, head.offset + pci::RCEC_BITMAP, bitmap) != PCI_OK)
        return false;
    return (bitmap >> pci::device_of(bdf) & 1) != 0;
}

// Looks into RCEC Associated Bus Numbers; a collector without any has RCEC Next Bus above RCEC Last
// Bus.
bool in_bus_range(const pci_cap_t &head, bdf_t bdf) {
    std::uint32_t header = 0;
    std::uint32_t buses = 0;
    if (read_register(head.bdf, head.offset + pci::EXT_CAP_HEADER, header) != PCI_OK ||
        pci::get(header, pci::EXT_CAP_HEADER_VERSION) < pci::RCEC_BUS_NUMBERS_VERSION ||
        read_register(head.bdf, head.offset + pci::RCEC_BUS_NUMBERS, buses) != PCI_OK)
        return false;
    const unsigned bus = pci::bus_of(bdf);
    return bus >= pci::get(buses, pci::RCEC_BUS_NUMBERS_NEXT) &&
           bus <= pci::get(buses, pci::RCEC_BUS_NUMBERS_LAST);
}

bool is_associated(rcec_cap_t *cap, bdf_t bdf) {
    const Function *function = nullptr;
    if (enter(cap->head, function) != PCI_OK || bdf > BDF_HIGHEST)
        return false;
    if (pci::bus_of(bdf) == pci::bus_of(cap->head.bdf))
        return in_bitmap(cap->head, bdf);
    return in_bus_range(cap->head, bdf);
}

constexpr rcec_cap_ops_t operations = {.is_associated = is_associated};

}  // namespace

const rcec_cap_ops_t &rcec_operations() {
    return operations;
}

}  // namespace host
