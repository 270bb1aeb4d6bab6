// A register without a rule here keeps its value whatever is written: bus numbers and ARI
// forwarding among them, which belong to the server and outlive every reset.
//
// Every reset counts as power-on, the worst case: all that a rule names gets its default, sticky
// bits such as the ECRC enables too. Device Control has the defaults of the PCI Express standard,
// also where a function may have a field fixed at zero: a dump does not tell.
#include "host/space/register_rules.h"

#include <algorithm>
#include <optional>

#include "host/space/capability_walk.h"
#include "host/space/registers.h"
#include "platform/capability.h"

namespace host {

namespace {

constexpr std::uint16_t COMMAND_PCIE = 0x0547;          // I/O, memory, master, parity, SERR, INTx
constexpr std::uint16_t COMMAND_CONVENTIONAL = 0x0038;  // special cycles, MWI, VGA snoop
constexpr std::uint16_t COMMAND_FAST_B2B = 0x0200;

constexpr std::uint16_t BRIDGE_PCIE = 0x005F;          // parity, SERR, ISA, VGA, VGA 16 bit, reset
constexpr std::uint16_t BRIDGE_CONVENTIONAL = 0x0BA0;  // master abort, fast b2b, discard timers
constexpr std::uint16_t BRIDGE_DISCARD_STATUS = 0x0400;
constexpr std::uint16_t BRIDGE_CARDBUS = 0x07EF;
constexpr std::uint16_t BRIDGE_CARDBUS_DEFAULT = 0x0340;  // reset, both windows prefetchable

class RuleFinder {
public:
    explicit RuleFinder(std::span<const std::uint8_t> bytes) : bytes_(bytes) {
        caps_ = walk_capabilities(read_);
        pcie_ = first_capability(caps_, CAPID_PCIE);
        if (!pcie_)
            return;
        port_type_ = (word(*pcie_ + reg::PCIE_CAPS) & reg::PCIE_CAPS_PORT_TYPE) >> 4;
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
        std::uint32_t kept = 0;      // what a reset leaves alone
        std::uint32_t defaults = 0;  // what it sets; it clears the rest
    };

    void add(unsigned offset, unsigned width, Bits bits) {
        if (offset + width > bytes_.size() || (bits.rw | bits.w1c) == 0)
            return;
        rules_.push_back({.offset = static_cast<std::uint16_t>(offset),
                          .width = static_cast<std::uint8_t>(width),
                          .rw = bits.rw,
                          .w1c = bits.w1c,
                          .reset_mask = (bits.rw | bits.w1c) & ~bits.kept,
                          .reset_value = bits.defaults});
    }

    // Of a capability in the conventional 256 bytes: what is behind them belongs to others.
    void add_conventional(unsigned offset, unsigned width, Bits bits) {
        if (offset + width <= reg::CONFIG_SIZE)
            add(offset, width, bits);
    }

    void add_command() {
        std::uint16_t bits = COMMAND_PCIE;
        if (!pcie_) {
            bits |= COMMAND_CONVENTIONAL;
            if (word(reg::STATUS) & reg::STATUS_FAST_B2B)
                bits |= COMMAND_FAST_B2B;
        }
        add(reg::COMMAND, 2, {.rw = bits});
        add(reg::STATUS, 2, {.w1c = reg::STATUS_ERRORS});
    }

    void add_bridge() {
        const unsigned layout = word(reg::HEADER_TYPE) & reg::HEADER_TYPE_LAYOUT;
        if (layout == reg::LAYOUT_CARDBUS) {
            add(reg::CARDBUS_SECONDARY_STATUS, 2, {.w1c = reg::STATUS_ERRORS});
            add(reg::BRIDGE_CONTROL, 2, {.rw = BRIDGE_CARDBUS, .defaults = BRIDGE_CARDBUS_DEFAULT});
        }
        if (layout != reg::LAYOUT_BRIDGE)
            return;
        add(reg::SECONDARY_STATUS, 2, {.w1c = reg::STATUS_ERRORS});
        Bits control{.rw = BRIDGE_PCIE};
        if (!pcie_ || port_type_ == PORT_TYPE_PCIE_TO_PCI) {
            control.rw |= BRIDGE_CONVENTIONAL;
            control.w1c = BRIDGE_DISCARD_STATUS;
        }
        add(reg::BRIDGE_CONTROL, 2, control);
    }

    void add_msi() {
        const auto cap = first_capability(caps_, CAPID_MSI);
        if (!cap)
            return;
        const unsigned control = word(*cap + reg::MSI_CONTROL);
        add_conventional(*cap + reg::MSI_CONTROL, 2,
                         {.rw = reg::MSI_ENABLE | reg::MSI_MULTIPLE_ENABLE});
        unsigned offset = *cap + reg::MSI_ADDRESS;
        add_conventional(offset, 4, {.rw = reg::MSI_ADDRESS_BITS});
        offset += 4;
        if (control & reg::MSI_64_BIT) {
            add_conventional(offset, 4, {.rw = 0xFFFF'FFFF});
            offset += 4;
        }
        add_conventional(offset, 2, {.rw = 0xFFFF});
        if (control & reg::MSI_MASKING)
            add_conventional(offset + 4, 4, {.rw = 0xFFFF'FFFF});
    }

    void add_msix() {
        if (const auto cap = first_capability(caps_, CAPID_MSIX))
            add_conventional(*cap + reg::MSIX_CONTROL, 2,
                             {.rw = reg::MSIX_MASK_ALL | reg::MSIX_ENABLE});
    }

    void add_pcie() {
        if (!pcie_)
            return;
        // Any payload size code sticks, as it does in hardware that does not check it.
        std::uint32_t control = reg::DEVCTL_ERROR_ENABLES | reg::DEVCTL_RELAXED_ORDERING |
                                reg::DEVCTL_PAYLOAD_SIZE | reg::DEVCTL_AUX_POWER |
                                reg::DEVCTL_NO_SNOOP | reg::DEVCTL_READ_REQUEST;
        if (word(*pcie_ + reg::DEVCAP) & reg::DEVCAP_EXT_TAG)
            control |= reg::DEVCTL_EXT_TAG;
        add_conventional(*pcie_ + reg::DEVCTL, 2,
                         {.rw = control,
                          .kept = reg::DEVCTL_AUX_POWER,
                          .defaults = reg::DEVCTL_RELAXED_ORDERING | reg::DEVCTL_NO_SNOOP |
                                      reg::DEVCTL_READ_REQUEST_512});
        add_conventional(*pcie_ + reg::DEVSTA, 2, {.w1c = reg::DEVSTA_ERRORS});
        add_link();
    }

    void add_link() {
        if (port_type_ == PORT_TYPE_RCIEP || port_type_ == PORT_TYPE_EVENT_COLLECTOR)
            return;  // no link
        std::uint32_t bits = reg::LINKCTL_WRITABLE;
        const bool above_link = port_type_ == PORT_TYPE_ROOT_PORT ||
                                port_type_ == PORT_TYPE_SWITCH_DOWNSTREAM ||
                                port_type_ == PORT_TYPE_PCI_TO_PCIE;
        if (!above_link)
            bits &= ~std::uint32_t{reg::LINKCTL_DISABLE};
        // The read completion boundary of a root port is its own, and no setting.
        const bool is_root_port = port_type_ == PORT_TYPE_ROOT_PORT;
        add_conventional(*pcie_ + reg::LINKCTL, 2,
                         {.rw = bits, .kept = is_root_port ? reg::LINKCTL_READ_BOUNDARY : 0U});
    }

    void add_aer() {
        const auto cap = first_capability(ext_caps_, EXT_CAPID_AER);
        if (!cap)
            return;
        const unsigned control = word(*cap + reg::AER_CONTROL);
        std::uint32_t bits = 0;
        if (control & reg::AER_GEN_CAPABLE)
            bits |= reg::AER_GEN_ENABLE;
        if (control & reg::AER_CHK_CAPABLE)
            bits |= reg::AER_CHK_ENABLE;
        add(*cap + reg::AER_CONTROL, 4, {.rw = bits});
    }

    // 0 where there are no bytes; add() then finds that the register is not there.
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
