// Says why a request for a payload size is not reached, and what to write in its place.
#pragma once

#include <functional>
#include <string>

#include "host/requests/view.h"

namespace host {

// These tests ask the module, or the registers.
struct EndpointTests {
    std::function<bool(bdf_t bdf)> is_endpoint;
    std::function<bool(bdf_t bdf)> can_be_set;  // is one, and has a path from a root port
};

// Returns why a request for one endpoint sets nothing; empty when it can.
std::string refusal(const MpsRequest &request, const MachineView &view, const EndpointTests &tests);

// Returns why a size is above what the path to a device allows.
std::string too_large_text(const MpsRequest &request, const MachineView &view, bdf_t device,
                           bdf_t root_port, unsigned limit);

// The size that another request has decided on for a hierarchy.
struct Decision {
    std::uint32_t size = 0;
    bdf_t device = BDF_NONE;
    std::string line;  // "line 3"
};

// Returns why a device has another size than is requested.
std::string forestalled_text(const MpsRequest &request, bdf_t device, bdf_t root_port,
                             const Decision &decision);

}  // namespace host
