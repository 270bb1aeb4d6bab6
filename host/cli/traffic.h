// Protects hierarchies in which drivers are at work from a change of their payload size.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/base/input.h"
#include "host/cli/options.h"
#include "host/exports/serve.h"
#include "host/machine/machine.h"
#include "host/space/machine_source.h"

namespace host {

// No order of writes is safe for a payload size under traffic, so nothing has been written, and the
// exit status is EXIT_NOT_ALL_DONE. what() is a line for each hierarchy.
class TrafficError : public InputError {
public:
    using InputError::InputError;
};

// Hierarchies by their root port, with the reason: "traffic on 02:00.0 (nvme)".
using LeftAlone = std::map<RoutingId, std::string>;

// With --write, returns the hierarchies in which start-up would change a payload size while a
// function, bridges aside, has a driver bound and Bus Master Enable set. The changes come from a
// plan, which is made in a child process on a snapshot. Empty with --busy write, and while no
// driver is at work. Logs warnings or, with --busy refuse, throws TrafficError. No other thread may
// run.
LeftAlone leave_busy_alone(const Options &options, const std::vector<ModuleEntry> &modules,
                           const MachineSource &source, const Machine &machine);

// Returns the managed buses without those below these root ports.
ManagedBuses managed_buses(const Options &options, const LeftAlone &left_alone,
                           const Machine &machine);

}  // namespace host
