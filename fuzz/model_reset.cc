// A reset in the model gives the registers that software writes their defaults, by the access
// classes in platform/pci_regs.h. Every other register keeps its value.
#include "fuzz/model_node.h"
#include "platform/types.h"

namespace host::fuzz::model {
namespace {

constexpr unsigned MASTER_ABORT = 0x0020, FAST_BACK_TO_BACK = 0x0080, DISCARD_TIMERS = 0x0F00;
constexpr unsigned ERRORS = 0xF900;  // of Status and Secondary Status

// Registers of a capability end with the first 256 bytes, those of an extended one with the last.
struct Place {
    unsigned offset, width, end;
};

void set(Node &node, Place place, std::uint32_t bits, std::uint32_t value = 0) {
    if (!node.get(place.offset, place.width) || place.offset + place.width > place.end)
        return;
    for (unsigned i = 0; i < place.width; ++i) {
        std::uint8_t &byte = node.bytes[place.offset + i];
        byte = static_cast<std::uint8_t>((byte & ~(bits >> 8 * i)) | value >> 8 * i);
    }
}

unsigned command_bits(const Node &node) {
    const unsigned every = 0x0547;
    if (node.pcie)
        return every;
    return every | 0x0038 | (node.get_or_0(6, 2) & 0x80 ? 0x0200 : 0);
}

void reset_header(Node &node) {
    constexpr unsigned CARDBUS_ONES = 0x0340;
    set(node, {4, 2, 64}, command_bits(node));
    set(node, {6, 2, 64}, ERRORS);
    if (node.layout == 1) {
        const bool is_conventional = !node.pcie || node.type == PORT_TYPE_PCIE_TO_PCI;
        set(node, {0x1E, 2, 64}, ERRORS);
        set(node, {0x3E, 2, 64},
            0x005F | (is_conventional ? MASTER_ABORT | FAST_BACK_TO_BACK | DISCARD_TIMERS : 0));
    }
    if (node.layout == 2) {
        set(node, {0x16, 2, 64}, ERRORS);
        set(node, {0x3E, 2, 64}, 0x04AF | CARDBUS_ONES, CARDBUS_ONES);
    }
}

void reset_interrupts(Node &node) {
    if (const unsigned msi = node.msi) {
        const unsigned control = node.get_or_0(msi + 2, 2), wide = control & 0x80 ? 4 : 0;
        set(node, {msi + 2, 2, 256}, 0x0071);
        set(node, {msi + 4, 4, 256}, 0xFFFF'FFFC);
        set(node, {msi + 8, wide, 256}, 0xFFFF'FFFF);
        set(node, {msi + 8 + wide, 2, 256}, 0xFFFF);
        if (control & 0x100)
            set(node, {msi + 12 + wide, 4, 256}, 0xFFFF'FFFF);
    }
    if (node.msix)
        set(node, {node.msix + 2, 2, 256}, 0xC000);
}

unsigned link_control_bits(const Node &node) {
    switch (node.type) {
    case PORT_TYPE_RCIEP:
    case PORT_TYPE_EVENT_COLLECTOR:
        return 0;  // no link
    case PORT_TYPE_ROOT_PORT:
        return 0x0FD3;  // Read Completion Boundary is read only
    case PORT_TYPE_SWITCH_DOWNSTREAM:
    case PORT_TYPE_PCI_TO_PCIE:
        return 0x0FDB;
    default:
        return 0x0FCB;  // Link Disable is read only below the link
    }
}

void reset_express(Node &node) {
    const unsigned pcie = node.pcie;
    const bool has_tags = (node.get_or_0(pcie + 4, 4) & 0x20) != 0;
    set(node, {pcie + 8, 2, 256}, has_tags ? 0x79FF : 0x78FF, 0x2810);
    set(node, {pcie + 0x0A, 2, 256}, 0x000F);
    set(node, {pcie + 0x10, 2, 256}, link_control_bits(node));
}

void reset_ecrc(Node &node) {
    const unsigned control = node.get_or_0(node.aer + 0x18, 4);
    set(node, {node.aer + 0x18, 4, 4096}, (control & 0xA0) << 1);
}

}  // namespace

void reset(Node &node) {
    reset_header(node);
    reset_interrupts(node);
    if (node.pcie)
        reset_express(node);
    if (node.aer)
        reset_ecrc(node);
}

bool knows_reset(const Node &node) {
    constexpr unsigned MSI_SIZE = 0x18, MSIX_SIZE = 0x0C, EXPRESS_SIZE = 0x14;
    const auto apart = [](unsigned a, unsigned a_size, unsigned b, unsigned b_size) {
        return !a || !b || a + a_size <= b || b + b_size <= a;
    };
    return apart(node.msi, MSI_SIZE, node.msix, MSIX_SIZE) &&
           apart(node.msi, MSI_SIZE, node.pcie, EXPRESS_SIZE) &&
           apart(node.msix, MSIX_SIZE, node.pcie, EXPRESS_SIZE);
}

}  // namespace host::fuzz::model
