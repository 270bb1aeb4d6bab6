// Max_Payload_Size along paths. A port treats packets with more payload than it is set to as
// malformed, which is a fatal error: no function may stand above the port above it through what
// modules write. A write that would bring it there is refused. What a refusal cannot prevent, a
// port that is lowered while something below it keeps its size, is repaired as soon as the module
// that wrote has returned.
#pragma once

#include <cstdint>
#include <mutex>
#include <set>

#include "host/machine/machine.h"

namespace host {

// What is kept about a machine.
struct PayloadWrites {
    std::mutex lock;
    std::set<RoutingId> written;  // Device Control, by modules, since the last repair
    std::mutex one_repair;        // guards what follows
    std::set<RoutingId> failed;   // not in bounds when a repair ended
};

// Before Device Control is written with `devctl`. PCI_ERR_INVALID, with a warning, for a payload
// size above what the function supports or what the port above it is set to now, or the error that
// the port's register gives; a size that the function has already is never refused.
pci_err_t admit_payload(const Function &function, std::uint16_t devctl);

// After start-up and after hooks: hierarchies are completed, where that is asked for. Then each
// function that stands above its port, and of which or of whose port a payload size has been
// written since the last call, is lowered to the port's size, from the root port down. False when
// any could not be lowered, now or earlier, which an error tells.
bool keep_payloads_in_bounds();

}  // namespace host
