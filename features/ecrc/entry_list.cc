#include "features/ecrc/entry_list.h"

#include <cstdlib>

#include "features/ecrc/controls.h"
#include "module/base/bdf_index.h"
#include "module/base/capability_call.h"
#include "module/base/feature.h"
#include "module/base/log.h"
#include "module/base/pcie_capability.h"

namespace enable_features {

bdf_index_t ecrc_index;

namespace {

entry_list_t &ecrc_list = feature_list[ROW_ECRC].list;

// The caller holds the list's lock.
ecrc_entry *recorded(bdf_t bdf) {
    return static_cast<ecrc_entry *>(find_indexed(ecrc_index, bdf));
}

struct release_entry {
    void operator()(ecrc_entry *entry) const {
        std::free(entry->aer_cap);
        std::free(entry->pcie_cap);
        std::free(entry);
    }
};

// Reads the entry's two capability objects. Objects read before a failure stay in the entry.
pci_err_t read_capabilities(ecrc_entry &entry, bdf_t bdf) {
    heap_ptr<pcie_cap_t> pcie_cap;
    pci_err_t result = read_pcie_cap(bdf, pcie_cap);
    if (result != PCI_OK)
        return result;
    entry.pcie_cap = pcie_cap.release();

    const int aer_index = call(entry.pcie_cap, &pcie_cap_ops_t::find_ext_cap, EXT_CAPID_AER);
    if (aer_index < 0)
        return PCI_ERR_NOT_SUPPORTED;
    pci_cap_t *object = nullptr;
    result = call(entry.pcie_cap, &pcie_cap_ops_t::read_ext_cap, &object, aer_index);
    if (result == PCI_OK)
        entry.aer_cap = reinterpret_cast<aer_cap_t *>(object);
    return result;
}

// Probes a control by disabling it. Re-enables it unless the configuration requests a setting,
// which start-up applies.
void probe(ecrc_entry &entry, bdf_t bdf, const ecrc_control_t &control, ecrc_setting request) {
    const bdf_token token = pci::token_of(bdf);
    const pci_err_t result = call(entry.aer_cap, control.disable, token);
    entry.*control.capable = result != PCI_ERR_NOT_SUPPORTED ? 1 : 0;
    if (result != PCI_OK || request != 0)
        return;
    const pci_err_t restored = call(entry.aer_cap, control.enable, token);
    control.report_restored(restored);
}

void update(ecrc_entry &entry, ecrc_setting gen, ecrc_setting chk) {
    if (gen != 0)
        entry.gen = gen;
    if (chk != 0)
        entry.chk = chk;
}

}  // namespace

ecrc_entry *ecrc_find_entry(bdf_t bdf) {
    ecrc_entry *entry = nullptr;
    {
        const mutex_guard guard(ecrc_list.lock);
        entry = recorded(bdf);
    }
    LOG_DEBUG(3, "%s(B%u:D%u:F%u) returns %p", "ecrc_find_entry", BDF_ARGS(bdf),
              static_cast<void *>(entry));
    return entry;
}

pci_err_t ecrc_add_or_update_entry(bdf_t bdf, ecrc_setting gen, ecrc_setting chk) {
    const mutex_guard guard(ecrc_list.lock);
    if (ecrc_entry *known = recorded(bdf)) {
        update(*known, gen, chk);
        return PCI_OK;
    }
    std::unique_ptr<ecrc_entry, release_entry> entry(
        static_cast<ecrc_entry *>(std::calloc(1, sizeof(ecrc_entry))));
    if (entry == nullptr)
        return PCI_ERR_NO_MEMORY;
    const pci_err_t result = read_capabilities(*entry, bdf);
    if (result != PCI_OK)
        return result;
    probe(*entry, bdf, ecrc_generation, gen);
    probe(*entry, bdf, ecrc_checking, chk);
    if (entry->gen_capable == 0 && entry->chk_capable == 0)
        return PCI_ERR_NOT_SUPPORTED;

    entry->bdf = bdf;
    entry->gen = gen;
    entry->chk = chk;
    append_entry(ecrc_list, entry.get());
    add_to_index(ecrc_index, bdf, entry.release());
    return PCI_OK;
}

}  // namespace enable_features
