// The operations of AER extended capability objects: the two ECRC switches.
#include <mutex>

#include "host/exports/capability_objects.h"
#include "host/exports/register_access.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

struct Switch {
    std::uint32_t capable;
    std::uint32_t enable;
};

constexpr Switch GENERATION = {pci::AER_CONTROL_ECRC_GEN_CAPABLE, pci::AER_CONTROL_ECRC_GEN_ENABLE};
constexpr Switch CHECKING = {pci::AER_CONTROL_ECRC_CHK_CAPABLE, pci::AER_CONTROL_ECRC_CHK_ENABLE};

// Both switches share a register and threads may use them at the same time, so each read, change
// and write is one step.
std::mutex switch_lock;

pci_err_t turn(const aer_cap_t *cap, bdf_token token, Switch which, bool on) {
    if (!pci::names_function(token, cap->head.bdf))
        return PCI_ERR_INVALID;
    const Function *function = nullptr;
    if (const pci_err_t error = enter(cap->head, function))
        return error;
    const std::scoped_lock guard(switch_lock);
    const unsigned offset = cap->head.offset + pci::AER_CONTROL;
    std::uint32_t control = 0;
    if (const pci_err_t error = recall_register(cap->head.bdf, offset, Changes::BY_WRITES, control))
        return error;
    if (!(control & which.capable))
        return PCI_ERR_NOT_SUPPORTED;
    if (((control & which.enable) != 0) == on)
        return PCI_ERR_ALREADY;
    if (const pci_err_t error = renew_register(cap->head.bdf, offset, control))
        return error;
    control = on ? control | which.enable : control & ~which.enable;
    if (const pci_err_t error = write_register_alone(cap->head.bdf, offset, control, control))
        return error;
    return ((control & which.enable) != 0) == on ? PCI_OK : PCI_ERR_IO;
}

constexpr aer_cap_ops_t operations = {
    .ecrc_chk_enable = [](aer_cap_t *cap,
                          bdf_token token) { return turn(cap, token, CHECKING, true); },
    .ecrc_chk_disable = [](aer_cap_t *cap,
                           bdf_token token) { return turn(cap, token, CHECKING, false); },
    .ecrc_gen_enable = [](aer_cap_t *cap,
                          bdf_token token) { return turn(cap, token, GENERATION, true); },
    .ecrc_gen_disable = [](aer_cap_t *cap,
                           bdf_token token) { return turn(cap, token, GENERATION, false); },
};

}  // namespace

const aer_cap_ops_t &aer_operations() {
    return operations;
}

}  // namespace host
