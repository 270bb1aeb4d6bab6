#include "bench/full_buses.h"

#include <vector>

#include "platform/capability.h"
#include "platform/pci_regs.h"
#include "platform/server.h"

namespace host::bench {
namespace {

constexpr unsigned CAP_VERSION = 2;
constexpr std::uint32_t ETHERNET_CLASS = 0x020000;
constexpr std::size_t BYTES = 0x150;  // up to the end of the AER capability

struct Bytes {
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(BYTES);

    void put(unsigned offset, unsigned width, std::uint32_t value) {
        for (unsigned i = 0; i < width; i++)
            bytes[offset + i] = static_cast<std::uint8_t>(value >> 8 * i);
    }
};

std::vector<std::uint8_t> function_bytes(std::uint8_t port_type, unsigned secondary) {
    Bytes function;
    function.put(pci::VENDOR_ID, 4, 0x0001'1AF4);
    function.put(pci::STATUS, 2, pci::STATUS_CAPABILITIES_LIST);
    function.put(pci::CLASS_REVISION, 4,
                 pci::in_field(pci::CLASS_REVISION_CLASS_CODE,
                               secondary != 0 ? PCI_BRIDGE_CLASS : ETHERNET_CLASS));
    function.put(pci::HEADER_TYPE, 1,
                 pci::HEADER_TYPE_MULTI_FUNCTION |
                     (secondary != 0 ? pci::HEADER_LAYOUT_BRIDGE : 0U));
    if (secondary != 0) {
        function.put(pci::SECONDARY_BUS_NUMBER, 1, secondary);
        function.put(pci::SUBORDINATE_BUS_NUMBER, 1, secondary);
    }
    function.put(pci::CAPABILITIES_POINTER, 1, PCIE_AT);
    function.put(PCIE_AT, 2, CAPID_PCIE);
    function.put(PCIE_AT + pci::PCIE_CAPS, 2,
                 CAP_VERSION | pci::in_field(pci::PCIE_CAPS_DEVICE_PORT_TYPE, port_type));
    function.put(PCIE_AT + pci::DEVCAP, 4, MPS_512);
    function.put(AER_AT, 4, pci::in_field(pci::EXT_CAP_HEADER_VERSION, 1) | EXT_CAPID_AER);
    function.put(AER_AT + pci::AER_CONTROL, 4,
                 pci::AER_CONTROL_ECRC_GEN_CAPABLE | pci::AER_CONTROL_ECRC_CHK_CAPABLE);
    return function.bytes;
}

}  // namespace

void fill(ConfigImage &image, unsigned functions) {
    const unsigned buses = functions / FUNCTIONS_PER_BUS;
    for (unsigned id = 0; id < functions; id++) {
        const unsigned place = id % FUNCTIONS_PER_BUS;
        const bool on_root_bus = id < FUNCTIONS_PER_BUS;
        const unsigned secondary = on_root_bus && place + 1 < buses ? place + 1 : 0;
        std::uint8_t type = on_root_bus ? PORT_TYPE_RCIEP : PORT_TYPE_ENDPOINT;
        if (secondary != 0)
            type = PORT_TYPE_ROOT_PORT;
        image.add(static_cast<RoutingId>(id), std::string(), function_bytes(type, secondary));
    }
}

}  // namespace host::bench
