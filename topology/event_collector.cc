#include "topology/event_collector.h"

#include "module/base/capability_call.h"
#include "module/base/log.h"
#include "platform/pci_access.h"
#include "platform/server.h"

namespace enable_features {

namespace {

// Returns the collector's association capability, null when the agent's records have none.
rcec_cap_t *collector_capability(const event_agent_t *agent) {
    return agent->capset != nullptr ? agent->capset->rcec : nullptr;
}

bool serves(bdf_t collector, bdf_t bdf) {
    const event_agent_t *agent = find_event_agent(collector);
    if (agent == nullptr)
        return false;
    rcec_cap_t *cap = collector_capability(agent);
    if (cap == nullptr) {
        LOG_ERROR(0, "Found RCEC for B%u:D%u:F%u but RCEC capability is NULL, skipping ...",
                  BDF_ARGS(bdf));
        return false;
    }
    return call(cap, &rcec_cap_ops_t::is_associated, bdf);
}

}  // namespace

bdf_t find_rcec(bdf_t bdf) {
    for (std::uint32_t index = 0;; index++) {
        const bdf_t collector =
            pci_device_find(index, ANY_VENDOR, ANY_DEVICE, EVENT_COLLECTOR_CLASS);
        if (collector == BDF_NONE)
            return BDF_NONE;
        if (serves(collector, bdf)) {
            LOG_INFO(2, "Found RCEC B%u:D%u:F%u for device B%u:D%u:F%u", BDF_ARGS(collector),
                     BDF_ARGS(bdf));
            return collector;
        }
    }
}

}  // namespace enable_features
