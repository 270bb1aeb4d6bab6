// A secondary bus reset returns everything below the upstream bridge to the default size. When that
// bridge has bridges below it, or is itself the function that the host names, whole paths have lost
// their size, so the scope is the hierarchy; else it is the one device.
//
// A hook returns silently if the device or its root port has no entry, or if the path is unknown.
// Two cases are logged as warnings: a function-level reset of a device without an entry, and a
// secondary bus reset for which no upstream bridge is found.
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

void report_no_hotplug(const char *hook, const bridge_rec *bridge, std::uint32_t event_value,
                       int status) {
    LOG_WARNING(0, "** %s(B%u:D%u:F%u, %u, %s), HOTPLUG NOT CURRENTLY SUPPORTED **", hook,
                BDF_ARGS(bridge->bdf), event_value, status_text(status));
}

// A reset, as the host reports it.
struct reset_t {
    std::uint32_t type;  // RESET_TYPE_*
    bdf_t bdf;
    int status;
};

// The functions that a reset may have returned to the default size.
struct target_t {
    enum { FUNCTION, DEVICE, HIERARCHY } scope;
    const rp_entry *rp;  // has the hierarchy's size; null when the path is unknown
    bdf_t device;        // the device's key; BDF_NONE for a hierarchy
};

struct reset_plan_t {
    enum { PASS_OVER, LEAVE_DEFAULT, PROGRAM } action;
    std::uint32_t size;  // bytes to program
};

// `entry` may be null.
target_t target_at(decltype(target_t::scope) scope, const mps_entry *entry) {
    if (entry == nullptr || !has_path(entry))
        return {.scope = scope, .rp = nullptr, .device = BDF_NONE};
    return {.scope = scope, .rp = entry->rp, .device = entry->bdf};
}

target_t target_of_bus_reset(const reset_t &reset) {
    bridge_rec *bridge = find_bridge_sec_busnum(nullptr, pci::bus_of(reset.bdf));
    if (bridge == nullptr)
        bridge = find_root_port(reset.bdf);
    if (bridge == nullptr) {
        LOG_WARNING(0, "** %s(%u, B%u:D%u:F%u, %s), NO UPSTREAM PORT ???", POST_RESET, reset.type,
                    BDF_ARGS(reset.bdf), status_text(reset.status));
        return target_at(target_t::DEVICE, nullptr);
    }
    const bool is_reset_function = bridge->bdf == reset.bdf;
    if (!is_reset_function && child_count(bridge) == 0)
        return target_at(target_t::DEVICE, mps_find_entry(reset.bdf));
    LOG_DEBUG(2, "%s, bdf_is_rp: %c", POST_RESET, is_reset_function ? 'T' : 'F');
    return {.scope = target_t::HIERARCHY, .rp = find_rp_entry(find_rp(bridge)), .device = BDF_NONE};
}

target_t target_of_function_reset(const reset_t &reset) {
    const mps_entry *entry = mps_find_entry(reset.bdf);
    if (entry == nullptr)
        LOG_WARNING(0, "%s(%u, B%u:D%u:F%u, %s), not an EP, why FLR ???", POST_RESET, reset.type,
                    BDF_ARGS(reset.bdf), status_text(reset.status));
    return target_at(target_t::FUNCTION, entry);
}

// A hierarchy that was never programmed keeps the default size.
reset_plan_t plan_reset(const target_t &target) {
    if (target.rp == nullptr)
        return {.action = reset_plan_t::PASS_OVER, .size = 0};
    const std::uint32_t size = cur_mps_of(target.rp);
    if (!is_a_supported_mps(size))
        return {.action = reset_plan_t::LEAVE_DEFAULT, .size = 0};
    return {.action = reset_plan_t::PROGRAM, .size = size};
}

void report_default(const reset_t &reset, const target_t &target) {
    if (target.scope == target_t::HIERARCHY)
        LOG_INFO(2,
                 "%s, MPS on paths below RP B%u:D%u:F%u were never changed or are invalid. Leave "
                 "default MPS",
                 POST_RESET, BDF_ARGS(target.rp->bridge->bdf));
    else
        LOG_INFO(2, "%s, MPS for EP B%u:D%u:F%u was never set or is invalid. Leave default MPS",
                 POST_RESET, BDF_ARGS(reset.bdf));
}

void program_function(const reset_t &reset, std::uint32_t size) {
    const pci_err_t result = mps_write_mps(nullptr, reset.bdf, size);
    LOG_DEBUG(2, "%s(%u, B%u:D%u:F%u, %s), mps_write_mps(), %s", POST_RESET, reset.type,
              BDF_ARGS(reset.bdf), status_text(reset.status), pci_strerror(result));
}

void program_device(const reset_t &reset, bdf_t device, std::uint32_t size) {
    const pci_err_t result = mps_write_mps_all_funcs(device, size);
    LOG_DEBUG(2, "%s(%u, B%u:D%u:F%u, %s), mps_write_mps_all_funcs(B%u:D%u:F%u, %u), %s",
              POST_RESET, reset.type, BDF_ARGS(reset.bdf), status_text(reset.status),
              BDF_ARGS(device), size, pci_strerror(result));
}

// Programs every path from the root port down, in list order, even those that the reset did not
// reach.
void program_hierarchy(const rp_entry *rp, std::uint32_t size) {
    const mutex_guard guard(ep_list().lock);
    for (mps_entry *entry = first_mps_entry(ep_list()); entry != nullptr;
         entry = next_mps_entry(entry)) {
        if (entry->rp == rp)
            mps_set_and_report(entry, size);
    }
}

void apply(const reset_t &reset, const target_t &target, const reset_plan_t &plan) {
    if (plan.action == reset_plan_t::PASS_OVER)
        return;
    if (plan.action == reset_plan_t::LEAVE_DEFAULT)
        report_default(reset, target);
    else if (target.scope == target_t::FUNCTION)
        program_function(reset, plan.size);
    else if (target.scope == target_t::DEVICE)
        program_device(reset, target.device, plan.size);
    else
        program_hierarchy(target.rp, plan.size);
}

void after_reset(const reset_t &reset, target_t (*target_of)(const reset_t &reset)) {
    const target_t target = target_of(reset);
    apply(reset, target, plan_reset(target));
}

}  // namespace

void post_reset_mps_enable(std::uint32_t reset_type, bdf_t bdf, int status) {
    LOG_DEBUG(2, "%s(%u, B%u:D%u:F%u, %s)", POST_RESET, reset_type, BDF_ARGS(bdf),
              status_text(status));
    const reset_t reset = {.type = reset_type, .bdf = bdf, .status = status};
    if (reset_type == RESET_TYPE_BUS)
        after_reset(reset, target_of_bus_reset);
    else if (reset_type == RESET_TYPE_FLR)
        after_reset(reset, target_of_function_reset);
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
