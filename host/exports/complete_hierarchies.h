// The payload size of bridges that modules pass over, with --complete.
//
// The module sets the paths that lead to endpoints. A switch port without an endpoint below it, and
// a PCI Express to PCI bridge, keep what they had: 128 bytes in a hierarchy of 256. What is behind
// them has to refuse larger packets, and so has what is plugged in there, which the kernel sets to
// the size of its port.
//
// So the host sets these bridges too, from the root port down, and reads each back; nothing else is
// written, and nothing is lowered. Which they are is defined in incomplete_hierarchies.h. When one
// fails, those above it are set back, from the bottom up, to what they were.
#pragma once

#include <mutex>
#include <set>
#include <string>

#include "host/exports/incomplete_hierarchies.h"

namespace host {

struct Served;

// What is kept about a machine.
struct GivenPayloads {
    std::mutex lock;
    GivenSizes by_modules;
    std::set<RoutingId> recent;  // of these, those since the last completion
    GivenSizes by_host;          // to bridges, by completion
    std::set<std::string> told;  // what stood in the way
};

// A module has read or is about to write Device Control. PCI_OK, or PCI_ERR_NO_MEMORY.
pci_err_t note_given_payload(const Function &function, std::uint16_t devctl);

// Sets bridges of the hierarchies in which modules have given sizes since the last call, and adds
// them to `written`; warns of what stands in the way, once. Without the option, only forgets
// functions that have gone. One call at a time.
void complete_hierarchies(Served &now, std::set<RoutingId> &written);

// Without the option, after start-up: a line about the bridges that it would set, if any.
void tell_of_incomplete_hierarchies();

// Whether the function has the payload size that complete_hierarchies() has set it to; `size` is
// what it is set to, in bytes.
bool is_completed(const Function &function, unsigned size);

}  // namespace host
