// Bridges are placed in ascending order. The secondary bus of a placed bridge comes after its own
// bus, so its parent has been placed before it, and no loop can arise. A bridge gets the buses of
// its range that only its parent has, up to the first that another bridge has, so that ranges
// cannot overlap. A bridge whose very secondary bus belongs to another bridge gets no bus.
//
// Placing a bridge in spite of wrong numbers does less harm than leaving it out: what is physically
// below it then counts when its hierarchy's payload size is chosen.
#include "host/machine/bus_layout.h"

#include "host/base/address.h"

namespace host {

namespace {

unsigned own_bus(const Function &bridge) {
    return pci::bus_of(bridge.bdf);
}

// Phrases that `bus` of the bridge's range does not belong to the upstream bridge. One of the two
// may be null: without a holder there is an upstream bridge, which did not get the bus itself. The
// range begins behind the bridge's own bus, which is in that of the upstream bridge.
std::string foreign_bus(unsigned bus, const Function *parent, const Function *holder) {
    if (!holder || (parent && bus > parent->subordinate))
        return "bus " + bus_text(bus) + " is none of those of the bridge above, " +
               bdf_text(parent->bdf);
    return "bus " + bus_text(bus) + " belongs to the bridge " + bdf_text(holder->bdf) + " already";
}

// Returns why the bridge cannot be placed at all; empty when it can.
std::string obstacle_of(const BusLayout &layout, const Function &bridge) {
    if (bridge.secondary == 0)
        return "the secondary bus is 0";
    if (bridge.secondary <= own_bus(bridge))
        return "the secondary bus does not come after the bridge's own bus";
    if (bridge.subordinate < bridge.secondary)
        return "the subordinate bus comes before the secondary bus";
    const Function *parent = layout.holder[own_bus(bridge)];
    const Function *holder = layout.holder[bridge.secondary];
    return holder && holder != parent ? foreign_bus(bridge.secondary, nullptr, holder)
                                      : std::string();
}

// Gives the bridge its buses. Returns what is wrong with the numbers; empty when they are sound.
std::string place(BusLayout &layout, const Function &bridge) {
    const Function *parent = layout.holder[own_bus(bridge)];
    std::string fault;
    layout.by_secondary[bridge.secondary] = &bridge;
    for (unsigned bus = bridge.secondary; bus <= bridge.subordinate; ++bus) {
        const Function *holder = layout.holder[bus];
        if (holder != parent && fault.empty())
            fault = foreign_bus(bus, parent, holder);
        if (holder && holder != parent)
            break;
        layout.holder[bus] = &bridge;
    }
    return fault;
}

std::string warning(const Function &bridge, const std::string &fault, const char *consequence) {
    return bdf_text(bridge.bdf) + ": bus numbers " + bus_text(own_bus(bridge)) + "->" +
           bus_text(bridge.secondary) + "-" + bus_text(bridge.subordinate) + ": " + fault + "; " +
           consequence;
}

}  // namespace

BusLayout lay_out_buses(std::span<const Function *const> functions,
                        std::vector<std::string> *warnings) {
    BusLayout layout;
    for (const Function *each : functions) {
        const Function &function = *each;
        if (!function.answers || !function.is_bridge())
            continue;
        if (function.secondary == 0 && function.subordinate == 0)
            continue;  // not configured: nothing is below it, and nothing is wrong
        const char *consequence = "nothing is taken to be below this bridge, and payload sizes of "
                                  "paths are not written to it";
        std::string fault = obstacle_of(layout, function);
        if (fault.empty()) {
            fault = place(layout, function);
            consequence = "the buses that no other bridge has are taken to be below this bridge";
        }
        if (!fault.empty() && warnings)
            warnings->push_back(warning(function, fault, consequence));
    }
    return layout;
}

}  // namespace host
