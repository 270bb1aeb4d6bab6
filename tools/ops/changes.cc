#include "tools/ops/changes.h"

#include <array>
#include <iomanip>
#include <ostream>

#include "host/base/address.h"
#include "host/machine/machine.h"
#include "platform/capability.h"
#include "platform/pci_regs.h"

namespace ops {
namespace {

// A field of a 16-bit register.
struct Field {
    const char *name;  // of the register
    // Nullopt when the function has no such register.
    std::optional<unsigned> (*offset)(const host::Function &function);
    std::uint16_t mask;
    std::array<const char *, 4> texts;  // by value
};

std::optional<unsigned> link_control(const host::Function &function) {
    const auto cap = function.cap(CAPID_PCIE);
    return cap ? std::optional(*cap + pci::LINKCTL) : std::nullopt;
}

std::optional<unsigned> command(const host::Function & /*function*/) {
    return pci::COMMAND;
}

std::optional<unsigned> bridge_control(const host::Function &function) {
    return function.is_bridge() ? std::optional(pci::BRIDGE_CONTROL) : std::nullopt;
}

const std::array FIELDS = {
    Field{"Link Control",
          link_control,
          pci::LINKCTL_ASPM,
          {"ASPM Disabled", "ASPM L0s", "ASPM L1", "ASPM L0s L1"}},
    Field{"Command", command, pci::COMMAND_FAST_B2B_ENABLE, {"FastB2B-", "FastB2B+"}},
    Field{"Bridge Control",
          bridge_control,
          pci::BRIDGE_CONTROL_FAST_B2B_ENABLE,
          {"FastB2B-", "FastB2B+"}},
};

// Returns 0 for a register that cannot be read.
unsigned read_field(const host::Machine &machine, const host::Function &function,
                    const Field &field) {
    const auto offset = field.offset(function);
    std::uint32_t value = 0;
    if (!function.answers || !offset ||
        machine.space().read(function.id(), *offset, 2, value) != PCI_OK)
        return 0;
    return pci::get(static_cast<std::uint16_t>(value), field.mask);
}

}  // namespace

FieldValues read_fields(const host::Machine &machine) {
    FieldValues values;
    for (const host::Function *function : machine.functions())
        for (const Field &field : FIELDS)
            values.push_back(read_field(machine, *function, field));
    return values;
}

void write_changes(const host::Machine &machine, const FieldValues &before, std::ostream &out) {
    auto old_value = before.begin();
    bool any = false;
    for (const host::Function *function : machine.functions())
        for (const Field &field : FIELDS) {
            const unsigned value = read_field(machine, *function, field);
            if (value != *old_value) {
                any = true;
                out << host::bdf_text(function->bdf) << "  " << std::left << std::setw(16)
                    << field.name << field.texts[*old_value] << " -> " << field.texts[value]
                    << '\n';
            }
            ++old_value;
        }
    if (!any)
        out << "nothing changed\n";
}

}  // namespace ops
