// Sets the payload size of bridges that modules pass over, with --complete.
//
// The module sets the paths that lead to endpoints. A switch port without an endpoint below it, and
// a PCI Express to PCI bridge, keep their size: 128 bytes in a hierarchy of 256. What is behind
// them must refuse larger packets, and so must a device that is plugged in there, which the kernel
// sets to the size of its port.
//
// So the host sets these bridges too, from the root port down, and reads each back; nothing else is
// written, and nothing is lowered. incomplete_hierarchies.h defines which bridges these are. When
// one fails, those above it are set back, from the bottom up, to what they were.
#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "host/exports/incomplete_hierarchies.h"

namespace host {

struct Served;

// The payload sizes that modules and the host have given to a machine.
struct GivenPayloads {
    std::mutex lock;
    GivenSizes by_modules;
    // By routing ID, those of by_modules since the last completion.
    std::vector<bool> recent = std::vector<bool>(ROUTING_IDS);
    bool any_recent = false;
    std::map<RoutingId, unsigned> by_host;  // given to bridges by completion
    std::set<std::string> told;             // obstacles that have been logged
};

// Notes that a module has read or is about to write Device Control.
void note_given_payload(const Function &function, std::uint16_t devctl);

// Sets bridges of the hierarchies in which modules have given sizes since the last call, and adds
// them to `written`; warns of each obstacle once. Without --complete, only forgets functions that
// are gone. One call at a time.
void complete_hierarchies(Served &now, std::set<RoutingId> &written);

// Returns the bridges that --complete would set now; none with --complete, which has set what it
// can.
std::set<RoutingId> completable_bridges();

// Returns true when the function has the payload size that complete_hierarchies() gave it; `size`
// is its present one, in bytes.
bool is_completed(const Function &function, unsigned size);

}  // namespace host
