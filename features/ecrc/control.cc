#include "features/ecrc/control.h"

#include "features/ecrc/controls.h"
#include "module/base/capability_call.h"
#include "module/base/guards.h"
#include "module/base/log.h"
#include "platform/pci_access.h"
#include "topology/bridge_links.h"

namespace enable_features {

namespace {

pci_err_t apply(ecrc_entry *entry, const ecrc_control_t &control) {
    const bool enable = entry->*control.request == 1;
    const char *word = enable ? "enable" : "disable";
    if (entry->*control.capable == 0) {
        control.report_not_capable(entry->bdf, word);
        return PCI_ERR_NOT_SUPPORTED;
    }
    const pci_err_t result =
        call(entry->aer_cap, enable ? control.enable : control.disable, pci::token_of(entry->bdf));
    if (result == PCI_OK || result == PCI_ERR_ALREADY)
        control.report_changed(entry->bdf, word, result == PCI_ERR_ALREADY);
    else
        control.report_failed(entry->bdf, word, result);
    return result;
}

void apply_requests_of(bdf_t bdf) {
    ecrc_entry *entry = ecrc_find_entry(bdf);
    if (entry == nullptr) {
        LOG_INFO(2, "No ECRC record for B%u:D%u:F%u, skipping", BDF_ARGS(bdf));
        return;
    }
    if (entry->gen != 0)
        set_ecrc_gen(entry);
    if (entry->chk != 0)
        set_ecrc_chk(entry);
}

// Goes depth first: the functions on the bridge's secondary bus, then each child's whole subtree.
void apply_below(bridge_rec *bridge, std::uint32_t value) {
    if (cached_param_get_sec_busnum(bridge, value) < 0) {
        LOG_ERROR(0, "%s(B%u:D%u:F%u, %u, %s), secondary bus number unavailable",
                  "post_insertion_ecrc_enable", BDF_ARGS(bridge->bdf), value, pci_strerror(PCI_OK));
        return;
    }
    {
        const read_guard guard(bridge->devs_lock);
        for (std::uint32_t i = 0; i < bridge->num_devs; i++)
            apply_requests_of(bridge->devs[i]);
    }
    for (bridge_rec *child = first_child(bridge); child != nullptr; child = next_sibling(child))
        apply_below(child, 0);
}

}  // namespace

pci_err_t set_ecrc_gen(ecrc_entry *entry) {
    return apply(entry, ecrc_generation);
}

pci_err_t set_ecrc_chk(ecrc_entry *entry) {
    return apply(entry, ecrc_checking);
}

pci_err_t ecrc_init(feature_t *row) {
    if (row->list.count == 0)
        return PCI_ERR_NOTHING_TO_DO;
    row->hooks.post_insertion = post_insertion_ecrc_enable;
    pci_err_t result = install_buscfg_hooks(&row->hooks);
    if (result != PCI_OK)
        return result;

    const auto counted = [](pci_err_t outcome) {
        return outcome == PCI_ERR_ALREADY ? PCI_OK : outcome;
    };
    const mutex_guard guard(row->list.lock);
    for (list_entry_t *link = row->list.first; link != nullptr; link = link->next) {
        auto *entry = static_cast<ecrc_entry *>(link);
        if (entry->gen != 0)
            result = counted(set_ecrc_gen(entry));
        if (entry->chk != 0)
            result = counted(set_ecrc_chk(entry));
    }
    return result;
}

void post_insertion_ecrc_enable(bridge_rec *bridge, std::uint32_t value, int status) {
    if (status != PCI_OK)
        return;
    apply_below(bridge, value);
}

}  // namespace enable_features
