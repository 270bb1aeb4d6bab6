#include "host/report/feature_state.h"

#include <bit>

#include "host/exports/register_access.h"
#include "host/space/registers.h"
#include "platform/capability.h"

namespace host {
namespace {

unsigned payload_bytes(std::uint32_t value, std::uint32_t mask) {
    return 128U << ((value & mask) >> std::countr_zero(mask));
}

EcrcControl ecrc_control(std::uint32_t value, std::uint32_t capable, std::uint32_t enable) {
    return {.capable = (value & capable) != 0,
            .enabled = (value & capable) != 0 && (value & enable) != 0};
}

// Nothing also for all ones of a function that does not answer any more.
std::optional<std::uint32_t> read_register(const Function &function,
                                           std::optional<std::uint16_t> base, unsigned offset,
                                           unsigned width) {
    std::uint32_t value = 0;
    if (!base || read_config(function.bdf, *base + offset, width, value) != PCI_OK)
        return std::nullopt;
    return value;
}

// The modules' programming reads the two registers one by one as well: a capability may be cut off
// between them, by the end of the dump or of the conventional 256 bytes, where it belongs.
std::optional<PayloadState> read_payload(const Function &function) {
    const auto read = [&](unsigned offset, unsigned width) {
        const auto base = function.cap(CAPID_PCIE);
        return base && *base + offset + width <= reg::CONFIG_SIZE
                   ? read_register(function, base, offset, width)
                   : std::nullopt;
    };
    PayloadState state;
    if (const auto devcap = read(reg::DEVCAP, 4))
        state.supported = payload_bytes(*devcap, reg::DEVCAP_PAYLOAD_SIZE);
    if (const auto devctl = read(reg::DEVCTL, 2))
        state.current = payload_bytes(*devctl, reg::DEVCTL_PAYLOAD_SIZE);
    return state.supported || state.current ? std::optional(state) : std::nullopt;
}

}  // namespace

FeatureState read_feature_state(const Machine &machine, const Function &function) {
    FeatureState state{.reachable = machine.reachable(function) &&
                                    read_register(function, 0, reg::VENDOR_ID, 2),
                       .mps = {},
                       .ecrc = {}};
    if (!state.reachable)
        return state;
    const auto aer_ctl =
        read_register(function, function.ext_cap(EXT_CAPID_AER), reg::AER_CONTROL, 4);
    state.mps = read_payload(function);
    if (aer_ctl)
        state.ecrc = {.gen = ecrc_control(*aer_ctl, reg::AER_GEN_CAPABLE, reg::AER_GEN_ENABLE),
                      .chk = ecrc_control(*aer_ctl, reg::AER_CHK_CAPABLE, reg::AER_CHK_ENABLE)};
    return state;
}

}  // namespace host
