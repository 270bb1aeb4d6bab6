// Which bridge leads to which bus, decided from the bridges' bus numbers alone.
#pragma once

#include <array>
#include <span>
#include <string>
#include <vector>

#include "host/machine/function.h"

namespace host {

constexpr unsigned BUSES = 256;

// Null: no bridge. The ranges of the bridges in it are nested in each other or apart.
struct BusLayout {
    // The bridge whose secondary bus it is. A bridge that stands nowhere here leads to no bus.
    std::array<const Function *, BUSES> by_secondary{};
    // The deepest bridge from whose secondary to subordinate bus it lies. It has no secondary bus
    // of its own where the functions of another bus reach over: virtual functions of SR-IOV
    // devices.
    std::array<const Function *, BUSES> holder{};
};

// `functions` is ascending. Bridges with impossible numbers are left out; `warnings`, unless null,
// receives a line for each.
BusLayout lay_out_buses(std::span<const Function *const> functions,
                        std::vector<std::string> *warnings);

}  // namespace host
