#include "host/space/kept_registers.h"

#include <algorithm>

#include "platform/pci_regs.h"

namespace host {
namespace {

unsigned shift_of(unsigned offset) {
    return 8 * (offset & 3);
}

std::uint32_t bits_of(unsigned offset, unsigned width) {
    return 0xFFFF'FFFFU >> (32 - 8 * width) << shift_of(offset);
}

}  // namespace

std::optional<std::uint32_t> KeptRegisters::find(RoutingId id, unsigned offset, unsigned width,
                                                 Changes changes) const {
    const auto function = functions_.find(id);
    if (function == functions_.end())
        return std::nullopt;
    const auto at = std::ranges::find(function->second, offset & ~3U, &Register::offset);
    if (at == function->second.end())
        return std::nullopt;
    const std::uint32_t bits = bits_of(offset, width);
    const std::uint32_t recent = at->age == age_ ? at->recent : 0;
    if ((bits & ~(changes == Changes::NEVER ? at->known : recent)) != 0)
        return std::nullopt;
    return (at->value & bits) >> shift_of(offset);
}

void KeptRegisters::keep(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) {
    if (offset == pci::IDS && find(id, offset, width, Changes::NEVER).value_or(value) != value)
        forget(id);
    std::vector<Register> &registers = functions_[id];
    auto at = std::ranges::find(registers, offset & ~3U, &Register::offset);
    if (at == registers.end())
        at = registers.insert(
            at, {.offset = offset & ~3U, .value = 0, .known = 0, .recent = 0, .age = age_});
    const std::uint32_t bits = bits_of(offset, width);
    at->value = (at->value & ~bits) | value << shift_of(offset);
    at->known |= bits;
    at->recent = (at->age == age_ ? at->recent : 0) | (keeps_settings_ ? bits : 0);
    at->age = age_;
}

void KeptRegisters::drop(RoutingId id, unsigned offset, unsigned width) {
    const auto function = functions_.find(id);
    if (function == functions_.end())
        return;
    const auto at = std::ranges::find(function->second, offset & ~3U, &Register::offset);
    if (at != function->second.end())
        at->recent &= ~bits_of(offset, width);
}

}  // namespace host
