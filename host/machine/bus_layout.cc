// Bridges are taken in ascending order. As a sound bridge's secondary bus comes after its own, its
// parent has been placed before it, and no loop can arise. A bridge is placed only where all its
// buses belong to its parent so far: ranges can then neither overlap nor leave the parent's.
#include "host/machine/bus_layout.h"

#include "host/machine/bdf_text.h"

namespace host {

namespace {

unsigned own_bus(const Function &bridge) {
    return bridge.bdf >> 8 & 0xFF;
}

// `bus` of the bridge's range does not belong to the bridge above; both may be null.
std::string foreign_bus(unsigned bus, const Function *parent, const Function *holder) {
    if (parent && (bus < parent->secondary || bus > parent->subordinate))
        return "bus " + bus_text(bus) + " is none of those of the bridge above, " +
               bdf_text(parent->bdf);
    return "bus " + bus_text(bus) + " belongs to the bridge " + bdf_text(holder->bdf) + " already";
}

// What is wrong with the numbers of `bridge`; empty when they are sound.
std::string fault_of(const BusLayout &layout, const Function &bridge) {
    if (bridge.secondary == 0)
        return "the secondary bus is 0";
    if (bridge.secondary <= own_bus(bridge))
        return "the secondary bus does not come after the bridge's own bus";
    if (bridge.subordinate < bridge.secondary)
        return "the subordinate bus comes before the secondary bus";
    const Function *parent = layout.holder[own_bus(bridge)];
    for (unsigned bus = bridge.secondary; bus <= bridge.subordinate; ++bus)
        if (layout.holder[bus] != parent)
            return foreign_bus(bus, parent, layout.holder[bus]);
    return {};
}

std::string warning(const Function &bridge, const std::string &fault) {
    return bdf_text(bridge.bdf) + ": bus numbers " + bus_text(own_bus(bridge)) + "->" +
           bus_text(bridge.secondary) + "-" + bus_text(bridge.subordinate) + ": " + fault +
           "; nothing is taken to be below this bridge";
}

void place(BusLayout &layout, const Function &bridge) {
    layout.by_secondary[bridge.secondary] = &bridge;
    for (unsigned bus = bridge.secondary; bus <= bridge.subordinate; ++bus)
        layout.holder[bus] = &bridge;
}

}  // namespace

BusLayout lay_out_buses(std::span<const Function> functions, std::vector<std::string> *warnings) {
    BusLayout layout;
    for (const Function &function : functions) {
        if (!function.answers || !function.is_bridge())
            continue;
        if (function.secondary == 0 && function.subordinate == 0)
            continue;  // not configured: nothing below it, and nothing wrong
        const std::string fault = fault_of(layout, function);
        if (fault.empty())
            place(layout, function);
        else if (warnings)
            warnings->push_back(warning(function, fault));
    }
    return layout;
}

}  // namespace host
