// Functions whose payload size differs from that of the ports above them, where packets are lost:
// above its port, it sends packets that the port must refuse; below any port above it, it must
// refuse larger packets itself, since its own setting is also the most that it accepts. The
// function's Max_Read_Request_Size does not matter here, because the driver that binds next may
// raise it; the report's findings, which come at the end, take it into account.
#pragma once

#include <map>
#include <span>
#include <string>

#include "host/machine/machine.h"

namespace host {

// The mismatches that were found by the last check, by function.
using PayloadMismatches = std::map<RoutingId, std::string>;

// Call after start-up. Logs a warning for each function that stands above its port, as it was
// found.
void warn_about_payloads_found();

// Call after an insertion. Logs an error for each function of the new functions' hierarchies whose
// mismatch differs from the last check, and for each new function with any. The kernel may have
// lowered a port above others for the sake of new functions.
void report_payload_mismatches(std::span<const RoutingId> come);

}  // namespace host
