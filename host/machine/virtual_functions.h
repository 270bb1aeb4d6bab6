// The virtual functions of SR-IOV devices. The standard reserves their payload size and ECRC
// controls: what their physical function is set to rules them too. Vendor and device read as all
// ones in them; the physical function's registers tell both.
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

// By their routing IDs: those that the SR-IOV capabilities of the functions that answer have
// enabled, whether or not there is anything at these addresses. `functions` is ascending.
std::map<RoutingId, VirtualFunction>
find_virtual_functions(ConfigSpace &space, std::span<const Function *const> functions);

}  // namespace host
