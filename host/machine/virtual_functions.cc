#include "host/machine/virtual_functions.h"

#include "platform/capability.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

// The registers of one SR-IOV capability; a register that cannot be read counts as 0.
class Sriov {
public:
    Sriov(ConfigSpace &space, RoutingId id, unsigned offset)
        : space_(space), id_(id), offset_(offset) {}

    unsigned read(pci::reg16 reg) const {
        std::uint32_t value = 0;
        return space_.read(id_, offset_ + reg, pci::width_of(reg), value) == PCI_OK ? value : 0;
    }

    // Returns the number of enabled virtual functions: NumVFs once VF Enable is set.
    unsigned enabled() const {
        const auto control = static_cast<std::uint16_t>(read(pci::SRIOV_CONTROL));
        return (control & pci::SRIOV_CONTROL_VF_ENABLE) != 0 ? read(pci::SRIOV_NUM_VFS) : 0;
    }

private:
    ConfigSpace &space_;
    RoutingId id_;
    unsigned offset_;
};

}  // namespace

std::map<RoutingId, VirtualFunction>
find_virtual_functions(ConfigSpace &space, std::span<const Function *const> functions) {
    std::map<RoutingId, VirtualFunction> found;
    for (const Function *function : functions) {
        const auto offset = function->ext_cap(EXT_CAPID_SRIOV);
        if (!offset || found.contains(function->id()))
            continue;
        const Sriov sriov(space, function->id(), *offset);
        const unsigned count = sriov.enabled();
        if (count == 0)
            continue;
        const unsigned first = function->id() + sriov.read(pci::SRIOV_FIRST_VF_OFFSET);
        const unsigned stride = sriov.read(pci::SRIOV_VF_STRIDE);
        const auto device = static_cast<std::uint16_t>(sriov.read(pci::SRIOV_VF_DEVICE_ID));
        for (unsigned n = 0; n < count; ++n)
            found.emplace(static_cast<RoutingId>(first + n * stride),
                          VirtualFunction{function->id(), function->vendor, device});
    }
    return found;
}

}  // namespace host
