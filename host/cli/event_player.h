// Plays events on the machine that is served.
#pragma once

#include <vector>

#include "host/cli/bus_events.h"
#include "host/machine/config_image.h"

namespace host {

// One after the other, on the calling thread: each is logged, then come the hooks before it, what
// it does to `machine` and to the registers in `image`, and the hooks after it.
void play_events(const std::vector<BusEvent> &events, Machine &machine, ConfigImage &image);

}  // namespace host
