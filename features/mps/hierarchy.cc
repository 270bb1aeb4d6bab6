// Two passes over the list:
// 1. Requests, in list order. The first that fits decides its hierarchy's size and is programmed
//    along its own path; when that fails, path and device go back to the default. Later entries of
//    a hierarchy that has its size lose their requests.
// 2. Entries without a request, those that lost theirs among them, get their hierarchy's size. A
//    hierarchy without any request is not changed.
// Both passes skip an entry whose path is not known, without a message.
#include "features/mps/hierarchy.h"

#include "features/mps/hooks.h"
#include "features/mps/register_access.h"
#include "module/base/guards.h"
#include "module/base/log.h"
#include "platform/pci_access.h"
#include "topology/classification.h"

namespace enable_features {

namespace {

// "Fz" in these messages stands for every function of the device.
void report_set(const mps_entry *entry, std::uint32_t size) {
    LOG_INFO(1, "set MPS value %u for B%u:D%u:Fz, %s", size, pci::bus_of(entry->bdf),
             pci::device_of(entry->bdf), pci_strerror(PCI_OK));
}

void report_shared(const mps_entry *entry, std::uint32_t cur_mps) {
    LOG_WARNING(1,
                "%s, EP B%u:D%u:F%u shares a common path element and MPS is already set to %u. "
                "Ignoring record",
                "mps_init", BDF_ARGS(entry->bdf), cur_mps);
}

void report_nothing_to_do(const mps_entry *entry) {
    LOG_DEBUG(2, "%s, no processing required for mps_entry B%u:D%u:F%u", "mps_init",
              BDF_ARGS(entry->bdf));
}

void report_path_max(const mps_entry *entry) {
    LOG_INFO(1, "%s, path max for B%u:D%u:F%u is %u", "mps_init", BDF_ARGS(entry->bdf),
             entry->rp->path_max);
}

void report_refused(const mps_entry *entry, std::uint32_t size) {
    LOG_WARNING(1, "%s, MPS setting of %u for EP B%u:D%u:F%u ignored. Path max is %u", "mps_init",
                size, BDF_ARGS(entry->bdf), entry->rp->path_max);
}

// Programs a request. A failure is undone along the whole path, because a path with two sizes loses
// packets.
pci_err_t set_or_restore(mps_entry *entry, std::uint32_t size) {
    const pci_err_t result = mps_set_ep_hierarchy(entry, size);
    if (result == PCI_OK) {
        report_set(entry, size);
        return result;
    }
    const pci_err_t restored = mps_set_ep_hierarchy(entry, MPS_DEFAULT);
    LOG_ERROR(0, "Unable to set MPS value %u for B%u:D%u:Fz, %s, restore default %s", size,
              pci::bus_of(entry->bdf), pci::device_of(entry->bdf), pci_strerror(result),
              pci_strerror(restored));
    return result;
}

// First pass. Returns `last`, the result of the attempt before, when nothing is programmed.
pci_err_t apply_request(mps_entry *entry, pci_err_t last) {
    const std::uint32_t cur_mps = cur_mps_of(entry->rp);
    const mps_decision_t decision = decide_mps(entry->mps, entry->rp->path_max, cur_mps);
    switch (decision.action) {
    case mps_decision_t::ALREADY_SET:
        report_shared(entry, cur_mps);
        entry->mps = 0;
        report_nothing_to_do(entry);
        return last;
    case mps_decision_t::NO_REQUEST:
        report_nothing_to_do(entry);
        return last;
    case mps_decision_t::REFUSED:
        report_path_max(entry);
        report_refused(entry, decision.size);
        entry->mps = 0;
        return last;
    case mps_decision_t::PROGRAM:
        break;
    }
    report_path_max(entry);
    return set_or_restore(entry, decision.size);
}

// Second pass. Returns `last` when nothing is programmed.
pci_err_t apply_hierarchy_size(mps_entry *entry, pci_err_t last) {
    const std::uint32_t size = cur_mps_of(entry->rp);
    if (entry->mps != 0 || !is_a_supported_mps(size))
        return last;
    return mps_set_and_report(entry, size);
}

pci_err_t for_each_path(const entry_list_t &list, pci_err_t last,
                        pci_err_t (*apply)(mps_entry *entry, pci_err_t last)) {
    for (mps_entry *entry = first_mps_entry(list); entry != nullptr;
         entry = next_mps_entry(entry)) {
        if (has_path(entry))
            last = apply(entry, last);
    }
    return last;
}

}  // namespace

// The root port is written first, so that a bridge accepts larger payloads before anything below it
// sends them.
pci_err_t mps_set_hierarchy(bridge_rec *bridge, std::uint32_t size) {
    LOG_DEBUG(3, "%s(upstream B%u:D%u:F%u, %u)", "mps_set_hierarchy", BDF_ARGS(bridge->bdf), size);
    if (!is_topmost(bridge))
        mps_set_hierarchy(bridge->parent, size);
    const pci_err_t result = mps_write_mps(bridge->pcie_cap, bridge->bdf, size);
    if (rp_entry *rp = find_rp_entry(bridge))
        set_cur_mps(rp, size);
    return result;
}

pci_err_t mps_set_ep_hierarchy(mps_entry *entry, std::uint32_t size) {
    if (!has_path(entry))
        return PCI_ERR_NO_DEVICE;
    if (size == MPS_MAX)
        size = entry->rp->path_max;
    if (!is_a_supported_mps(size))
        return PCI_ERR_INVALID;
    const pci_err_t result = mps_set_hierarchy(entry->upstream, size);
    if (result != PCI_OK)
        return result;
    return mps_write_mps_all_funcs(entry->bdf, size);
}

pci_err_t mps_set_and_report(mps_entry *entry, std::uint32_t size) {
    const pci_err_t result = mps_set_ep_hierarchy(entry, size);
    if (result == PCI_OK)
        report_set(entry, size);
    else
        LOG_ERROR(0, "Unable to set MPS value %u for B%u:D%u:Fz, %s", size, pci::bus_of(entry->bdf),
                  pci::device_of(entry->bdf), pci_strerror(result));
    return result;
}

mps_decision_t decide_mps(std::uint32_t request, std::uint32_t path_max, std::uint32_t cur_mps) {
    if (cur_mps != 0)
        return {mps_decision_t::ALREADY_SET, cur_mps};
    if (request == 0)
        return {mps_decision_t::NO_REQUEST, 0};
    const std::uint32_t size = request == MPS_MAX ? path_max : request;
    if (size > path_max || !is_a_supported_mps(size))
        return {mps_decision_t::REFUSED, size};
    return {mps_decision_t::PROGRAM, size};
}

pci_err_t mps_init(feature_t *row) {
    if (row->list.count == 0)
        return PCI_ERR_NOTHING_TO_DO;
    row->hooks.post_reset = post_reset_mps_enable;
    row->hooks.post_insertion = post_insertion_mps_enable;
    row->hooks.pre_removal = pre_removal_mps_disable;
    // The hooks are registered before anything is programmed, so that no reset is missed: a reset
    // that comes meanwhile finds what has been programmed by then.
    const pci_err_t registered = install_buscfg_hooks(&row->hooks);
    if (registered != PCI_OK)
        return registered;

    const mutex_guard guard(row->list.lock);
    const pci_err_t last = for_each_path(row->list, PCI_OK, apply_request);
    return for_each_path(row->list, last, apply_hierarchy_size);
}

}  // namespace enable_features
