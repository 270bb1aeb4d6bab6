#include "host/machine/function.h"

#include "platform/capability.h"
#include "platform/pci_regs.h"

namespace host {

namespace {

class FunctionReader {
public:
    FunctionReader(ConfigSpace &space, RoutingId id) : space_(space), id_(id) {}

    // The IDs are read, and not recalled, because they show that the function is still there.
    // A function that goes, or is replaced by another one, while it is read counts as absent,
    // because the registers read may belong to two functions.
    Function read() {
        Function function = read_registers();
        if (!function.answers || ids() == ids_of(function))
            return function;
        Function absent{};
        absent.bdf = id_;
        return absent;
    }

private:
    Function read_registers() {
        Function function{};
        function.bdf = id_;
        const std::uint32_t found = ids().value_or(0xFFFF'FFFF);
        if (pci::get(found, pci::IDS_VENDOR) == pci::VENDOR_ID_NONE)
            return function;
        function.answers = true;
        function.vendor = static_cast<std::uint16_t>(pci::get(found, pci::IDS_VENDOR));
        function.device = static_cast<std::uint16_t>(pci::get(found, pci::IDS_DEVICE));
        function.class_code =
            pci::get(dword(pci::CLASS_REVISION).value_or(0), pci::CLASS_REVISION_CLASS_CODE);
        read_header(function);
        function.caps = walk_capabilities(reader_);
        if (const auto pcie = function.cap(CAPID_PCIE)) {
            const unsigned caps = read_word(reader_, *pcie + pci::PCIE_CAPS).value_or(0);
            function.port_type =
                static_cast<std::uint8_t>(pci::get(caps, pci::PCIE_CAPS_DEVICE_PORT_TYPE));
            function.mpss = static_cast<std::uint8_t>(
                pci::get(dword(*pcie + pci::DEVCAP).value_or(0), pci::DEVCAP_MPSS));
            function.ext_caps = walk_ext_capabilities(reader_);
        }
        return function;
    }

    static std::uint32_t ids_of(const Function &function) {
        return pci::in_field(pci::IDS_DEVICE, function.device) | function.vendor;
    }

    void read_header(Function &function) {
        const unsigned type = read_word(reader_, pci::HEADER_TYPE).value_or(0);
        function.header_type = static_cast<std::uint8_t>(pci::get(type, pci::HEADER_TYPE_LAYOUT));
        function.multi_function = (type & pci::HEADER_TYPE_MULTI_FUNCTION) != 0;
        if (!function.is_bridge())
            return;
        const unsigned numbers = dword(pci::BUS_NUMBERS).value_or(0);
        function.secondary =
            static_cast<std::uint8_t>(pci::get(numbers, pci::BUS_NUMBERS_SECONDARY));
        function.subordinate =
            static_cast<std::uint8_t>(pci::get(numbers, pci::BUS_NUMBERS_SUBORDINATE));
    }

    std::optional<std::uint32_t> ids() {
        std::uint32_t value = 0;
        if (space_.read(id_, pci::IDS, 4, value) != PCI_OK)
            return std::nullopt;
        return value;
    }

    std::optional<std::uint32_t> dword(unsigned offset) {
        std::uint32_t value = 0;
        if (space_.recall(id_, offset, 4, Changes::BY_WRITES, value) != PCI_OK)
            return std::nullopt;
        return value;
    }

    ConfigSpace &space_;
    RoutingId id_;
    ReadDword reader_ = [this](unsigned offset) { return dword(offset); };
};

}  // namespace

std::optional<std::uint16_t> Function::cap(std::uint8_t cap_id) const {
    return first_capability(caps, cap_id);
}

std::optional<std::uint16_t> Function::ext_cap(std::uint16_t cap_id) const {
    return first_capability(ext_caps, cap_id);
}

Function read_function(ConfigSpace &space, RoutingId id) {
    return FunctionReader(space, id).read();
}

bool forwards_ari(ConfigSpace &space, const Function &bridge) {
    if (!bridge.port_type || !pci::is_above_link(*bridge.port_type))
        return false;
    const unsigned pcie = *bridge.cap(CAPID_PCIE);
    if (pcie + pci::DEVCTL2 + 2 > pci::CONFIG_SIZE)
        return false;
    std::uint32_t caps = 0;
    std::uint32_t control = 0;
    const auto recall = [&](unsigned reg, Changes changes, std::uint32_t &value) {
        return space.recall(bridge.id(), pcie + reg, 2, changes, value) == PCI_OK;
    };
    return recall(pci::PCIE_CAPS, Changes::NEVER, caps) &&
           pci::get(caps, pci::PCIE_CAPS_VERSION) >= 2 &&
           recall(pci::DEVCTL2, Changes::BY_WRITES, control) &&
           (control & pci::DEVCTL2_ARI_FORWARDING) != 0;
}

}  // namespace host
