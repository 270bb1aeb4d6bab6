// Decides from the bridges' bus numbers alone which bridge leads to which bus.
#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

#include "host/machine/function.h"

namespace host {

constexpr unsigned BUSES = 256;

// A null entry means that no bridge leads to the bus. The ranges of the bridges are nested in each
// other or apart.
struct BusLayout {
    // The bridge whose secondary bus it is. A bridge that is not in this array leads to no bus.
    std::array<const Function *, BUSES> by_secondary{};
    // The deepest bridge whose range, secondary to subordinate bus, holds the bus. Such a bus is no
    // bridge's secondary bus when the functions of another bus reach over to it: virtual functions
    // of SR-IOV devices.
    std::array<const Function *, BUSES> holder{};
};

// Lays out the buses of `functions`, which is ascending. Bridges with impossible numbers are left
// out; `warnings`, unless null, receives a line for each.
BusLayout lay_out_buses(std::span<const Function *const> functions,
                        std::vector<std::string> *warnings);

}  // namespace host
