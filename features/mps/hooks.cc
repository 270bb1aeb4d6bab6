// After a bus reset the scope is a whole hierarchy when the bridge above the function has bridges
// below it, which have lost their sizes too, or when it is the function itself; else it is the one
// device.
//
// A device without an entry, an entry without a path and a root port without an entry end a hook,
// silently; only of a device without an entry that was reset alone a message tells.
#include "features/mps/hooks.h"

#include "features/mps/hierarchy.h"
#include "features/mps/register_access.h"
#include "module/base/guards.h"
#include "module/base/log.h"
#include "platform/buscfg.h"
#include "platform/pci_access.h"
#include "topology/bridge_links.h"
#include "topology/classification.h"

namespace enable_features {

namespace {

constexpr char POST_RESET[] = "post_reset_mps_enable";  // the hook's name in messages

const char *status_text(int status) {
    return pci_strerror(static_cast<pci_err_t>(status));
}

void report_left_alone(bdf_t bdf) {
    LOG_INFO(2, "%s, MPS for EP B%u:D%u:F%u was never set or is invalid. Leave default MPS",
             POST_RESET, BDF_ARGS(bdf));
}

void report_no_hotplug(const char *hook, const bridge_rec *bridge, std::uint32_t event_value,
                       int status) {
    LOG_WARNING(0, "** %s(B%u:D%u:F%u, %u, %s), HOTPLUG NOT CURRENTLY SUPPORTED **", hook,
                BDF_ARGS(bridge->bdf), event_value, status_text(status));
}

// Every path from the root port down, in list order, whether or not it lay below the reset.
void reprogram_hierarchy(bridge_rec *bridge) {
    bridge_rec *root_port = find_rp(bridge);
    const rp_entry *rp = find_rp_entry(root_port);
    if (rp == nullptr)
        return;
    const std::uint32_t size = cur_mps_of(rp);
    if (!is_a_supported_mps(size)) {
        LOG_INFO(2,
                 "%s, MPS on paths below RP B%u:D%u:F%u were never changed or are invalid. Leave "
                 "default MPS",
                 POST_RESET, BDF_ARGS(root_port->bdf));
        return;
    }
    const mutex_guard guard(ep_list().lock);
    for (mps_entry *entry = first_mps_entry(ep_list()); entry != nullptr;
         entry = next_mps_entry(entry)) {
        if (entry->rp == rp)
            mps_set_and_report(entry, size);
    }
}

void reprogram_device(bdf_t bdf, int status) {
    const mps_entry *entry = mps_find_entry(bdf);
    if (entry == nullptr || !has_path(entry))
        return;
    const std::uint32_t size = cur_mps_of(entry->rp);
    if (!is_a_supported_mps(size)) {
        report_left_alone(bdf);
        return;
    }
    const pci_err_t result = mps_write_mps_all_funcs(entry->bdf, size);
    LOG_DEBUG(2, "%s(%u, B%u:D%u:F%u, %s), mps_write_mps_all_funcs(B%u:D%u:F%u, %u), %s",
              POST_RESET, RESET_TYPE_BUS, BDF_ARGS(bdf), status_text(status), BDF_ARGS(entry->bdf),
              size, pci_strerror(result));
}

void after_bus_reset(bdf_t bdf, int status) {
    bridge_rec *bridge = find_bridge_sec_busnum(nullptr, pci::bus_of(bdf));
    if (bridge == nullptr)
        bridge = find_root_port(bdf);
    if (bridge == nullptr) {
        LOG_WARNING(0, "** %s(%u, B%u:D%u:F%u, %s), NO UPSTREAM PORT ???", POST_RESET,
                    RESET_TYPE_BUS, BDF_ARGS(bdf), status_text(status));
        return;
    }
    const bool is_reset_function = bridge->bdf == bdf;
    if (!is_reset_function && child_count(bridge) == 0) {
        reprogram_device(bdf, status);
        return;
    }
    LOG_DEBUG(2, "%s, bdf_is_rp: %c", POST_RESET, is_reset_function ? 'T' : 'F');
    reprogram_hierarchy(bridge);
}

void after_function_reset(bdf_t bdf, int status) {
    const mps_entry *entry = mps_find_entry(bdf);
    if (entry == nullptr) {
        LOG_WARNING(0, "%s(%u, B%u:D%u:F%u, %s), not an EP, why FLR ???", POST_RESET,
                    RESET_TYPE_FLR, BDF_ARGS(bdf), status_text(status));
        return;
    }
    if (!has_path(entry))
        return;
    const std::uint32_t size = cur_mps_of(entry->rp);
    if (!is_a_supported_mps(size)) {
        report_left_alone(bdf);
        return;
    }
    const pci_err_t result = mps_write_mps(nullptr, bdf, size);
    LOG_DEBUG(2, "%s(%u, B%u:D%u:F%u, %s), mps_write_mps(), %s", POST_RESET, RESET_TYPE_FLR,
              BDF_ARGS(bdf), status_text(status), pci_strerror(result));
}

}  // namespace

void post_reset_mps_enable(std::uint32_t reset_type, bdf_t bdf, int status) {
    LOG_DEBUG(2, "%s(%u, B%u:D%u:F%u, %s)", POST_RESET, reset_type, BDF_ARGS(bdf),
              status_text(status));
    if (reset_type == RESET_TYPE_BUS)
        after_bus_reset(bdf, status);
    else if (reset_type == RESET_TYPE_FLR)
        after_function_reset(bdf, status);
    else
        LOG_WARNING(0, "%s, skipping reset type %u", POST_RESET, reset_type);
}

void post_insertion_mps_enable(bridge_rec *bridge, std::uint32_t event_value, int status) {
    report_no_hotplug("post_insertion_mps_enable", bridge, event_value, status);
}

void pre_removal_mps_disable(bridge_rec *bridge, std::uint32_t event_value, int status) {
    report_no_hotplug("pre_removal_mps_disable", bridge, event_value, status);
}

}  // namespace enable_features
