// Resets of live functions, by the kernel.
#pragma once

#include <chrono>
#include <span>

#include "host/machine/machine.h"
#include "host/space/live_space.h"

namespace host {

// How long a function may stay away after a reset.
constexpr std::chrono::seconds LONGEST_RESET{60};

// Resets one function, or the bus that it is on, and waits until what was reset answers again: the
// function, or all of `below`. What could not be reset and what stays away is said in errors. 0, or
// PCI_ERR_NOT_SUPPORTED when the kernel has no such reset for the function, PCI_ERR_NO_DEVICE when
// it has gone, PCI_ERR_IO otherwise.
pci_err_t reset_function(LiveSpace &space, RoutingId id);
pci_err_t reset_bus(LiveSpace &space, RoutingId id, std::span<const Function *const> below);

}  // namespace host
