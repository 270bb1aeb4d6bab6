// A register without a rule here keeps its value whatever is written. Bus numbers and ARI
// Forwarding Enable are among these: they belong to the server and outlive every reset.
//
// Every reset counts as power-on, the worst case: all fields with a rule get their default, sticky
// ones such as the ECRC enables too. Device Control gets the defaults of the PCI Express standard,
// even where a function may have a field fixed at zero, because a dump does not tell.
#include "host/space/register_rules.h"

#include <algorithm>
#include <optional>

#include "host/space/capability_walk.h"
#include "platform/capability.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

constexpr std::uint16_t COMMAND_PCIE =
    pci::COMMAND_IO_SPACE | pci::COMMAND_MEMORY_SPACE | pci::COMMAND_BUS_MASTER |
    pci::COMMAND_PARITY_ERROR_RESPONSE | pci::COMMAND_SERR_ENABLE | pci::COMMAND_INTERRUPT_DISABLE;
constexpr std::uint16_t COMMAND_CONVENTIONAL = pci::COMMAND_SPECIAL_CYCLES |
                                               pci::COMMAND_MEMORY_WRITE_AND_INVALIDATE |
                                               pci::COMMAND_VGA_PALETTE_SNOOP;

constexpr std::uint16_t BRIDGE_EVERY =
    pci::BRIDGE_CONTROL_PARITY_ERROR_RESPONSE | pci::BRIDGE_CONTROL_SERR_ENABLE |
    pci::BRIDGE_CONTROL_ISA_ENABLE | pci::BRIDGE_CONTROL_VGA_ENABLE;
constexpr std::uint16_t BRIDGE_PCIE =
    BRIDGE_EVERY | pci::BRIDGE_CONTROL_VGA_16_BIT_DECODE | pci::BRIDGE_CONTROL_SECONDARY_BUS_RESET;
constexpr std::uint16_t BRIDGE_CONVENTIONAL =
    pci::BRIDGE_CONTROL_MASTER_ABORT_MODE | pci::BRIDGE_CONTROL_FAST_B2B_ENABLE |
    pci::BRIDGE_CONTROL_PRIMARY_DISCARD_TIMER | pci::BRIDGE_CONTROL_SECONDARY_DISCARD_TIMER |
    pci::BRIDGE_CONTROL_DISCARD_TIMER_SERR;
constexpr std::uint16_t CARDBUS_DEFAULT = pci::CARDBUS_CONTROL_RESET |
                                          pci::CARDBUS_CONTROL_MEMORY_0_PREFETCH |
                                          pci::CARDBUS_CONTROL_MEMORY_1_PREFETCH;
constexpr std::uint16_t BRIDGE_CARDBUS = BRIDGE_EVERY | pci::BRIDGE_CONTROL_MASTER_ABORT_MODE |
                                         CARDBUS_DEFAULT | pci::CARDBUS_CONTROL_INTERRUPT_ENABLE |
                                         pci::CARDBUS_CONTROL_WRITE_POSTING_ENABLE;

constexpr std::uint16_t DEVCTL_EVERY =
    pci::DEVCTL_CORRECTABLE_ERROR_REPORTING | pci::DEVCTL_NON_FATAL_ERROR_REPORTING |
    pci::DEVCTL_FATAL_ERROR_REPORTING | pci::DEVCTL_UNSUPPORTED_REQUEST_REPORTING |
    pci::DEVCTL_RELAXED_ORDERING | pci::DEVCTL_MPS | pci::DEVCTL_AUX_POWER_PM |
    pci::DEVCTL_NO_SNOOP | pci::DEVCTL_MRRS;
constexpr std::uint16_t DEVCTL_DEFAULT = pci::DEVCTL_RELAXED_ORDERING | pci::DEVCTL_NO_SNOOP |
                                         pci::in_field(pci::DEVCTL_MRRS, pci::MRRS_DEFAULT);

constexpr std::uint16_t LINKCTL_EVERY =
    pci::LINKCTL_ASPM | pci::LINKCTL_RCB | pci::LINKCTL_COMMON_CLOCK | pci::LINKCTL_EXTENDED_SYNCH |
    pci::LINKCTL_CLOCK_POWER_MANAGEMENT | pci::LINKCTL_AUTONOMOUS_WIDTH_DISABLE |
    pci::LINKCTL_BANDWIDTH_INTERRUPT | pci::LINKCTL_AUTONOMOUS_BANDWIDTH_INTERRUPT;

class RuleFinder {
public:
    explicit RuleFinder(std::span<const std::uint8_t> bytes) : bytes_(bytes) {
        caps_ = walk_capabilities(read_);
        pcie_ = first_capability(caps_, CAPID_PCIE);
        if (!pcie_)
            return;
        port_type_ = pci::get(word(*pcie_ + pci::PCIE_CAPS), pci::PCIE_CAPS_DEVICE_PORT_TYPE);
        ext_caps_ = walk_ext_capabilities(read_);
    }

    std::vector<RegisterRule> find() {
        add_command();
        add_bridge();
        add_msi();
        add_msix();
        add_pcie();
        add_aer();
        const auto by_offset = [](const RegisterRule &a, const RegisterRule &b) {
            return a.offset < b.offset;
        };
        std::stable_sort(rules_.begin(), rules_.end(), by_offset);
        return std::move(rules_);
    }

private:
    struct Bits {
        std::uint32_t rw = 0;
        std::uint32_t w1c = 0;
        std::uint32_t kept = 0;      // bits that a reset leaves alone
        std::uint32_t defaults = 0;  // bits that a reset sets; it clears the others
    };

    // `start` is the capability's offset, or 0 for a register of the header.
    template <typename Register>
    void add(unsigned start, Register which, Bits bits) {
        const unsigned offset = start + which;
        const unsigned width = pci::width_of(which);
        if (offset + width > bytes_.size() || (bits.rw | bits.w1c) == 0)
            return;
        rules_.push_back({.offset = static_cast<std::uint16_t>(offset),
                          .width = static_cast<std::uint8_t>(width),
                          .rw = bits.rw,
                          .w1c = bits.w1c,
                          .reset_mask = (bits.rw | bits.w1c) & ~bits.kept,
                          .reset_value = bits.defaults});
    }

    // The capability must lie in the first 256 bytes, because the bytes behind belong to extended
    // capabilities.
    template <typename Register>
    void add_conventional(unsigned start, Register which, Bits bits) {
        if (start + which + pci::width_of(which) <= pci::CONFIG_SIZE)
            add(start, which, bits);
    }

    void add_command() {
        std::uint16_t bits = COMMAND_PCIE;
        if (!pcie_) {
            bits |= COMMAND_CONVENTIONAL;
            if (word(pci::STATUS) & pci::STATUS_FAST_B2B_CAPABLE)
                bits |= pci::COMMAND_FAST_B2B_ENABLE;
        }
        add(0, pci::COMMAND, {.rw = bits});
        add(0, pci::STATUS, {.w1c = pci::STATUS_RW1C});
    }

    void add_bridge() {
        const unsigned layout = pci::get(word(pci::HEADER_TYPE), pci::HEADER_TYPE_LAYOUT);
        if (layout == pci::HEADER_LAYOUT_CARDBUS) {
            add(0, pci::CARDBUS_SECONDARY_STATUS, {.w1c = pci::STATUS_RW1C});
            add(0, pci::BRIDGE_CONTROL, {.rw = BRIDGE_CARDBUS, .defaults = CARDBUS_DEFAULT});
        }
        if (layout != pci::HEADER_LAYOUT_BRIDGE)
            return;
        add(0, pci::SECONDARY_STATUS, {.w1c = pci::STATUS_RW1C});
        Bits control{.rw = BRIDGE_PCIE};
        if (!pcie_ || port_type_ == PORT_TYPE_PCIE_TO_PCI) {
            control.rw |= BRIDGE_CONVENTIONAL;
            control.w1c = pci::BRIDGE_CONTROL_DISCARD_TIMER_STATUS;
        }
        add(0, pci::BRIDGE_CONTROL, control);
    }

    void add_msi() {
        const auto cap = first_capability(caps_, CAPID_MSI);
        if (!cap)
            return;
        const unsigned control = word(*cap + pci::MSI_CONTROL);
        add_conventional(
            *cap, pci::MSI_CONTROL,
            {.rw = pci::MSI_CONTROL_ENABLE | pci::MSI_CONTROL_MULTIPLE_MESSAGE_ENABLE});
        const bool is_64_bit = (control & pci::MSI_CONTROL_64_BIT) != 0;
        add_conventional(*cap, pci::MSI_ADDRESS, {.rw = pci::MSI_ADDRESS_BITS});
        if (is_64_bit)
            add_conventional(*cap, pci::MSI_UPPER_ADDRESS, {.rw = 0xFFFF'FFFF});
        add_conventional(*cap, is_64_bit ? pci::MSI_DATA_64_BIT : pci::MSI_DATA, {.rw = 0xFFFF});
        if (control & pci::MSI_CONTROL_PER_VECTOR_MASKING)
            add_conventional(*cap, is_64_bit ? pci::MSI_MASK_BITS_64_BIT : pci::MSI_MASK_BITS,
                             {.rw = 0xFFFF'FFFF});
    }

    void add_msix() {
        if (const auto cap = first_capability(caps_, CAPID_MSIX))
            add_conventional(*cap, pci::MSIX_CONTROL,
                             {.rw = pci::MSIX_CONTROL_FUNCTION_MASK | pci::MSIX_CONTROL_ENABLE});
    }

    void add_pcie() {
        if (!pcie_)
            return;
        // Any value of Max_Payload_Size sticks, as it does in hardware that does not check it.
        std::uint32_t control = DEVCTL_EVERY;
        if (word(*pcie_ + pci::DEVCAP) & pci::DEVCAP_EXT_TAG)
            control |= pci::DEVCTL_EXT_TAG;
        add_conventional(
            *pcie_, pci::DEVCTL,
            {.rw = control, .kept = pci::DEVCTL_AUX_POWER_PM, .defaults = DEVCTL_DEFAULT});
        add_conventional(*pcie_, pci::DEVSTA, {.w1c = pci::DEVSTA_RW1C});
        add_link();
    }

    void add_link() {
        if (port_type_ == PORT_TYPE_RCIEP || port_type_ == PORT_TYPE_EVENT_COLLECTOR)
            return;  // no link
        std::uint32_t bits = LINKCTL_EVERY;
        if (pci::is_above_link(port_type_))
            bits |= pci::LINKCTL_LINK_DISABLE;
        // Read Completion Boundary (RCB) is read only in a root port, so a reset keeps it.
        const bool is_root_port = port_type_ == PORT_TYPE_ROOT_PORT;
        add_conventional(*pcie_, pci::LINKCTL,
                         {.rw = bits, .kept = is_root_port ? pci::LINKCTL_RCB : 0U});
    }

    void add_aer() {
        const auto cap = first_capability(ext_caps_, EXT_CAPID_AER);
        if (!cap)
            return;
        const unsigned control = word(*cap + pci::AER_CONTROL);
        std::uint32_t bits = 0;
        if (control & pci::AER_CONTROL_ECRC_GEN_CAPABLE)
            bits |= pci::AER_CONTROL_ECRC_GEN_ENABLE;
        if (control & pci::AER_CONTROL_ECRC_CHK_CAPABLE)
            bits |= pci::AER_CONTROL_ECRC_CHK_ENABLE;
        add(*cap, pci::AER_CONTROL, {.rw = bits});
    }

    // Returns 0 where there are no bytes; add() then finds that the register is not there.
    std::uint16_t word(unsigned offset) const { return read_word(read_, offset).value_or(0); }

    std::optional<std::uint32_t> dword(unsigned offset) const {
        if (offset + 4 > bytes_.size())
            return std::nullopt;
        std::uint32_t value = 0;
        for (unsigned i = 4; i-- > 0;)
            value = value << 8 | bytes_[offset + i];
        return value;
    }

    std::span<const std::uint8_t> bytes_;
    ReadDword read_ = [this](unsigned offset) { return dword(offset); };
    std::vector<CapPosition> caps_;
    std::vector<CapPosition> ext_caps_;
    std::optional<std::uint16_t> pcie_;
    unsigned port_type_ = 0;
    std::vector<RegisterRule> rules_;
};

}  // namespace

std::vector<RegisterRule> register_rules(std::span<const std::uint8_t> bytes) {
    return RuleFinder(bytes).find();
}

}  // namespace host
