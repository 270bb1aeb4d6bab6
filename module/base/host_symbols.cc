#include "module/base/host_symbols.h"

#include <dlfcn.h>

#include "module/base/log.h"

namespace enable_features {

bridge_lookup_t find_parent_bridge_p = nullptr;
bridge_lookup_t find_bridge_bdf_p = nullptr;

namespace {

// Two threads may look up at the same time; both store the same address. A failed look-up stores
// null, so that the next call tries again.
bridge_lookup_t look_up(bridge_lookup_t *cache, const char *name) {
    bridge_lookup_t found = __atomic_load_n(cache, __ATOMIC_RELAXED);
    if (found != nullptr)
        return found;
    found = reinterpret_cast<bridge_lookup_t>(dlsym(RTLD_DEFAULT, name));
    __atomic_store_n(cache, found, __ATOMIC_RELAXED);
    LOG_DEBUG(1, "Lookup of server sym %s %s", name, found != nullptr ? "ok" : "failed");
    return found;
}

}  // namespace

bridge_rec *find_parent_bridge(bridge_rec *start, bdf_t bdf) {
    const bridge_lookup_t host_function = look_up(&find_parent_bridge_p, "find_parent_bridge");
    return host_function != nullptr ? host_function(start, bdf) : nullptr;
}

bridge_rec *find_bridge_bdf(bridge_rec *start, bdf_t bdf) {
    const bridge_lookup_t host_function = look_up(&find_bridge_bdf_p, "find_bridge_bdf");
    return host_function != nullptr ? host_function(start, bdf) : nullptr;
}

}  // namespace enable_features
