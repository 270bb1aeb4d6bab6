// Functions whose payload size differs from that of the ports above them, where packets are lost:
// above its port, it sends packets that the port must refuse; below any port above it, it must
// refuse larger packets itself, since its own setting is also the most that it accepts.
#pragma once

#include <map>
#include <span>
#include <string>

#include "host/machine/machine.h"

namespace host {

// What was found when functions were looked at last, by function.
using PayloadMismatches = std::map<RoutingId, std::string>;

// After start-up: a warning for each function that stands above its port, as it was found.
void warn_about_payloads_found();

// After functions have come: an error for each function of their hierarchies that differs in
// another way than when it was looked at last; those that have come, in any way. The kernel may
// have lowered a port above others for their sake.
void report_payload_mismatches(std::span<const RoutingId> come);

}  // namespace host
