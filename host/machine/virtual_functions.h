// Finds the virtual functions of SR-IOV devices. The standard reserves their payload size and ECRC
// controls: the physical function's settings apply to them too. Their Vendor ID and Device ID read
// as all ones, so both are derived from the physical function's registers.
#pragma once

#include <map>
#include <span>

#include "host/machine/function.h"

namespace host {

struct VirtualFunction {
    RoutingId physical;
    std::uint16_t vendor;
    std::uint16_t device;
};

// Returns, by routing ID, the virtual functions that the SR-IOV capabilities of answering functions
// have enabled, whether or not a function answers at these addresses. `functions` is ascending.
std::map<RoutingId, VirtualFunction>
find_virtual_functions(ConfigSpace &space, std::span<const Function *const> functions);

}  // namespace host
