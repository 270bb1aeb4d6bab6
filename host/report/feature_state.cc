#include "host/report/feature_state.h"

#include "host/exports/register_access.h"
#include "platform/capability.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

EcrcControl ecrc_control(std::uint32_t value, std::uint32_t capable, std::uint32_t enable) {
    return {.capable = (value & capable) != 0,
            .enabled = (value & capable) != 0 && (value & enable) != 0};
}

// Returns nullopt for all ones too, which a function that does not answer any more reads as.
std::optional<std::uint32_t> recall(const Function &function, std::optional<std::uint16_t> base,
                                    unsigned offset, unsigned width, Changes changes) {
    std::uint32_t value = 0;
    if (!base || recall_config(function.bdf, *base + offset, width, changes, value) != PCI_OK)
        return std::nullopt;
    return value;
}

// Both IDs are read, because what is kept of a function is dropped when they have changed.
bool answers_now(const Function &function) {
    std::uint32_t ids = 0;
    return read_config(function.bdf, pci::IDS, 4, ids) == PCI_OK &&
           pci::get(ids, pci::IDS_VENDOR) != pci::VENDOR_ID_NONE;
}

// The two registers are read one by one, as modules read them: a capability may be cut off between
// them by the end of the dump or of the first 256 bytes.
std::optional<PayloadState> read_payload(const Function &function) {
    const auto read = [&](unsigned offset, unsigned width, Changes changes) {
        const auto base = function.cap(CAPID_PCIE);
        return base && *base + offset + width <= pci::CONFIG_SIZE
                   ? recall(function, base, offset, width, changes)
                   : std::nullopt;
    };
    PayloadState state;
    if (const auto devcap = read(pci::DEVCAP, 4, Changes::NEVER))
        state.supported = pci::size_bytes(pci::get(*devcap, pci::DEVCAP_MPSS));
    if (const auto devctl = read(pci::DEVCTL, 2, Changes::BY_WRITES)) {
        state.current = pci::size_bytes(pci::get(*devctl, pci::DEVCTL_MPS));
        state.read_request = pci::size_bytes(pci::get(*devctl, pci::DEVCTL_MRRS));
    }
    return state.supported || state.current ? std::optional(state) : std::nullopt;
}

}  // namespace

FeatureState read_feature_state(const Machine &machine, const Function &function) {
    FeatureState state{
        .reachable = machine.reachable(function) && answers_now(function), .mps = {}, .ecrc = {}};
    if (!state.reachable)
        return state;
    const auto aer_ctl =
        recall(function, function.ext_cap(EXT_CAPID_AER), pci::AER_CONTROL, 4, Changes::BY_WRITES);
    state.mps = read_payload(function);
    if (aer_ctl)
        state.ecrc = {.gen = ecrc_control(*aer_ctl, pci::AER_CONTROL_ECRC_GEN_CAPABLE,
                                          pci::AER_CONTROL_ECRC_GEN_ENABLE),
                      .chk = ecrc_control(*aer_ctl, pci::AER_CONTROL_ECRC_CHK_CAPABLE,
                                          pci::AER_CONTROL_ECRC_CHK_ENABLE)};
    else
        state.ecrc_unknown =
            function.port_type && !recall(function, 0, pci::CONFIG_SIZE, 4, Changes::NEVER);
    return state;
}

}  // namespace host
