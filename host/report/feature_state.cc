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
std::optional<std::uint32_t> read_register(const Function &function,
                                           std::optional<std::uint16_t> base, unsigned offset,
                                           unsigned width) {
    std::uint32_t value = 0;
    if (!base || read_config(function.bdf, *base + offset, width, value) != PCI_OK)
        return std::nullopt;
    return value;
}

// The two registers are read one by one, as modules read them: a capability may be cut off between
// them by the end of the dump or of the first 256 bytes.
std::optional<PayloadState> read_payload(const Function &function) {
    const auto read = [&](unsigned offset, unsigned width) {
        const auto base = function.cap(CAPID_PCIE);
        return base && *base + offset + width <= pci::CONFIG_SIZE
                   ? read_register(function, base, offset, width)
                   : std::nullopt;
    };
    PayloadState state;
    if (const auto devcap = read(pci::DEVCAP, 4))
        state.supported = pci::size_bytes(pci::get(*devcap, pci::DEVCAP_MPSS));
    if (const auto devctl = read(pci::DEVCTL, 2)) {
        state.current = pci::size_bytes(pci::get(*devctl, pci::DEVCTL_MPS));
        state.read_request = pci::size_bytes(pci::get(*devctl, pci::DEVCTL_MRRS));
    }
    return state.supported || state.current ? std::optional(state) : std::nullopt;
}

}  // namespace

FeatureState read_feature_state(const Machine &machine, const Function &function) {
    FeatureState state{.reachable = machine.reachable(function) &&
                                    read_register(function, 0, pci::VENDOR_ID, 2),
                       .mps = {},
                       .ecrc = {}};
    if (!state.reachable)
        return state;
    const auto aer_ctl =
        read_register(function, function.ext_cap(EXT_CAPID_AER), pci::AER_CONTROL, 4);
    state.mps = read_payload(function);
    if (aer_ctl)
        state.ecrc = {.gen = ecrc_control(*aer_ctl, pci::AER_CONTROL_ECRC_GEN_CAPABLE,
                                          pci::AER_CONTROL_ECRC_GEN_ENABLE),
                      .chk = ecrc_control(*aer_ctl, pci::AER_CONTROL_ECRC_CHK_CAPABLE,
                                          pci::AER_CONTROL_ECRC_CHK_ENABLE)};
    else
        state.ecrc_unknown = function.port_type && !read_register(function, 0, pci::CONFIG_SIZE, 4);
    return state;
}

}  // namespace host
