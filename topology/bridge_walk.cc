#include "topology/bridge_walk.h"

#include "module/base/host_symbols.h"
#include "module/base/log.h"
#include "topology/bridge_links.h"

namespace enable_features {

void walk_bridges(bridge_rec *first, const char *caller, void (*operation)(bridge_rec *bridge)) {
    for (bridge_rec *bridge = first; bridge != nullptr; bridge = next_sibling(bridge)) {
        bridge_rec *const children = first_child(bridge);
        LOG_DEBUG(0, "%s(B%u:D%u:F%u)", caller, BDF_ARGS(bridge->bdf));
        operation(bridge);
        walk_bridges(children, caller, operation);
    }
}

bridge_rec *bridge_at_or_above(bdf_t bdf) {
    bridge_rec *const bridge = find_bridge_bdf(nullptr, bdf);
    return bridge != nullptr ? bridge : find_parent_bridge(nullptr, bdf);
}

}  // namespace enable_features
