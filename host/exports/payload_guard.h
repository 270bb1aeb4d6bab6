// Keeps Max_Payload_Size in bounds along paths. A port treats packets with more payload than it is
// set to as malformed, which is a fatal error, so no write of a module may bring a function above
// the port above it. A write that would do so is refused. A refusal cannot prevent that a port is
// lowered while a function below it keeps its size: that is repaired as soon as the module that
// wrote has returned; of a function that was away at that moment, when it has come.
#pragma once

#include <cstdint>
#include <mutex>
#include <set>
#include <span>

#include "host/base/by_routing_id.h"
#include "host/machine/machine.h"

namespace host {

// The writes of modules to a machine.
struct PayloadWrites {
    std::mutex lock;
    ByRoutingId<bool> written;   // what the next repair is about
    std::mutex one_repair;       // guards `failed`
    std::set<RoutingId> failed;  // above their port when a repair ended
};

// Checks a write of `devctl` to Device Control. Returns PCI_ERR_INVALID, with a warning, for a
// payload size above what the function supports or what the port above it is set to now, or the
// error of reading that port's register. A size that the function has already is never refused.
pci_err_t admit_payload(const Function &function, std::uint16_t devctl);

// Call when these functions have come, before the hooks. The kernel gives a function the size that
// its port has at that moment, and a module may lower the port before the machine has the function.
// So one that stands above a port that still has the size that a module gave it counts as written.
// Where the kernel has lowered the port, it does not: report_payload_mismatches() tells.
void admit_arrivals(std::span<const RoutingId> come);

// Call after start-up and after hooks. Completes hierarchies, where --complete asks for that. Then
// each function that stands above its port is lowered to the port's size, from the root port down,
// if its payload size or its port's has been written since the last call. Returns false when any
// could not be lowered, now or earlier, which is logged as an error.
bool keep_payloads_in_bounds();

}  // namespace host
