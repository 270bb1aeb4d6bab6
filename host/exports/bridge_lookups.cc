// Bridge look-ups in the tree of the machine served. They take constant time and ignore `start`.
#include "host/exports/serve.h"
#include "platform/bridge.h"

namespace {

const host::BridgeTree *tree() {
    host::Served *served = host::served();
    return served ? &served->machine.bridges() : nullptr;
}

}  // namespace

bridge_rec *find_parent_bridge(bridge_rec *, bdf_t bdf) {
    const host::BridgeTree *bridges = tree();
    if (!bridges)
        return nullptr;
    return bdf == BDF_NONE ? bridges->top() : bridges->above(bdf);
}

bridge_rec *find_bridge_bdf(bridge_rec *, bdf_t bdf) {
    const host::BridgeTree *bridges = tree();
    return bridges ? bridges->by_bdf(bdf) : nullptr;
}

bridge_rec *find_bridge_sec_busnum(bridge_rec *, std::uint32_t bus) {
    const host::BridgeTree *bridges = tree();
    return bridges ? bridges->by_secondary(bus) : nullptr;
}

int cached_param_get_sec_busnum(bridge_rec *bridge, std::uint32_t value) {
    constexpr std::uint32_t HIGHEST_BUS = 255;
    if (value > HIGHEST_BUS)
        return -1;
    if (value != 0)
        return static_cast<int>(value);
    const host::BridgeTree *bridges = tree();
    return bridges && bridge ? bridges->secondary_bus(*bridge) : -1;
}
