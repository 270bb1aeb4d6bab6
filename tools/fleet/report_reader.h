// Reads reports value by value, so that no report is in memory as a whole.
#pragma once

#include "tools/fleet/devices.h"
#include "tools/fleet/machine_report.h"
#include "tools/fleet/report_input.h"

namespace fleet {

// Reads the next report, and adds what it names to the devices. Throws host::InputError, which
// names file, line and byte, for one that is damaged or of another format.
MachineReport read_report(ReportInput &in, Devices &devices);

}  // namespace fleet
