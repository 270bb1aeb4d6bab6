#include "tests/support/module_state.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "features/ecrc/entry_list.h"
#include "features/mps/endpoint_list.h"
#include "features/mps/root_port_list.h"
#include "host/exports/hooks.h"
#include "module/base/feature.h"
#include "module/base/host_symbols.h"

namespace host::tests {

namespace module = enable_features;

// An index is large, so only its entries are cleared.
static void free_capabilities_and_indexes() {
    for (auto *link = module::feature_list[module::ROW_ECRC].list.first; link; link = link->next) {
        const auto *entry = static_cast<module::ecrc_entry *>(link);
        std::free(entry->pcie_cap);
        std::free(entry->aer_cap);
        module::ecrc_index.entries[entry->bdf] = nullptr;
    }
    for (auto *link = module::ep_list().first; link; link = link->next)
        module::device_index.entries[static_cast<module::mps_entry *>(link)->bdf] = nullptr;
}

static void empty(module::entry_list_t &list) {
    for (module::list_entry_t *entry = list.first; entry;)
        std::free(std::exchange(entry, entry->next));
    list.first = list.last = nullptr;
    list.count = 0;
}

void reset_module() {
    static const auto as_loaded = std::to_array(module::feature_list);
    free_capabilities_and_indexes();
    for (module::feature_t &row : module::feature_list)
        empty(row.list);
    std::ranges::copy(as_loaded, module::feature_list);
    empty(module::rp_list);
    module::ep_list_once = module::rp_list_init_once = PTHREAD_ONCE_INIT;
    module::buscfg_pp = nullptr;
    module::find_parent_bridge_p = module::find_bridge_bdf_p = nullptr;
    forget_hooks();
}

}  // namespace host::tests
