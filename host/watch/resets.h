// Resets live functions through the kernel.
#pragma once

#include <chrono>
#include <span>

#include "host/machine/machine.h"
#include "host/space/live_space.h"

namespace host {

// The longest time that a function may take to answer after a reset.
constexpr std::chrono::seconds LONGEST_RESET{60};

// Reset one function, or the bus that it is on, and wait until what was reset answers again: the
// function, or all of `below`. Failures and functions that do not come back are logged as errors.
// Return 0; PCI_ERR_NOT_SUPPORTED when the kernel has no such reset for the function;
// PCI_ERR_NO_DEVICE when the function is gone; PCI_ERR_IO otherwise.
pci_err_t reset_function(LiveSpace &space, RoutingId id);
pci_err_t reset_bus(LiveSpace &space, RoutingId id, std::span<const Function *const> below);

}  // namespace host
