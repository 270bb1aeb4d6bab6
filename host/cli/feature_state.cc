#include "host/cli/feature_state.h"

#include <bit>

#include "host/machine/registers.h"
#include "platform/capability.h"

namespace host {
namespace {

constexpr std::uint32_t DEVCAP_PAYLOAD_SIZE = 0x0000'0007;  // largest that is supported

unsigned payload_bytes(std::uint32_t value, std::uint32_t mask) {
    return 128U << ((value & mask) >> std::countr_zero(mask));
}

EcrcControl ecrc_control(std::uint32_t value, std::uint32_t capable, std::uint32_t enable) {
    return {.capable = (value & capable) != 0,
            .enabled = (value & capable) != 0 && (value & enable) != 0};
}

class Registers {
public:
    Registers(const Machine &machine, const Function &function)
        : space_(machine.space()), id_(function.id()) {}

    std::optional<std::uint32_t> read(std::optional<std::uint16_t> base, unsigned offset,
                                      unsigned width) const {
        std::uint32_t value = 0;
        if (!base || space_.read(id_, *base + offset, width, value) != PCI_OK)
            return std::nullopt;
        return value;
    }

private:
    ConfigSpace &space_;
    RoutingId id_;
};

// Where Device Capabilities and Control are within the conventional 256 bytes, where they belong.
std::optional<std::uint16_t> pcie_capability(const Function &function) {
    const auto offset = function.cap(CAPID_PCIE);
    if (!offset || *offset + reg::DEVCTL + 2 > reg::CONFIG_SIZE)
        return std::nullopt;
    return offset;
}

}  // namespace

FeatureState read_feature_state(const Machine &machine, const Function &function) {
    FeatureState state{.reachable = machine.reachable(function), .mps = {}, .ecrc = {}};
    if (!state.reachable)
        return state;
    const Registers registers(machine, function);
    const auto devcap = registers.read(pcie_capability(function), reg::DEVCAP, 4);
    const auto devctl = registers.read(pcie_capability(function), reg::DEVCTL, 2);
    const auto aer_ctl = registers.read(function.ext_cap(EXT_CAPID_AER), reg::AER_CONTROL, 4);
    if (devcap && devctl)
        state.mps = {.supported = payload_bytes(*devcap, DEVCAP_PAYLOAD_SIZE),
                     .current = payload_bytes(*devctl, reg::DEVCTL_PAYLOAD_SIZE)};
    if (aer_ctl)
        state.ecrc = {.gen = ecrc_control(*aer_ctl, reg::AER_GEN_CAPABLE, reg::AER_GEN_ENABLE),
                      .chk = ecrc_control(*aer_ctl, reg::AER_CHK_CAPABLE, reg::AER_CHK_ENABLE)};
    return state;
}

}  // namespace host
