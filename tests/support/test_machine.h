// Machines for tests: a test lists the functions in C++, and the host's own code does the rest.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/machine/machine.h"
#include "host/space/config_image.h"
#include "platform/pci_regs.h"

namespace host::tests {

constexpr RoutingId at(unsigned bus, unsigned device = 0, unsigned function = 0) {
    return pci::routing_id_of(pci::plain_bdf(bus, device, function));
}

// Make a function's address in ARI form: its routing ID, and its address as modules see it.
constexpr RoutingId ari_at(unsigned bus, unsigned function) {
    return pci::routing_id_of(pci::ari_bdf(bus, function));
}
constexpr bdf_t ari(RoutingId id) {
    return id | BDF_ARI_FLAG;
}

// ECRC bits of Advanced Error Capabilities and Control.
constexpr std::uint32_t GEN_CAP = pci::AER_CONTROL_ECRC_GEN_CAPABLE,
                        GEN_ON = pci::AER_CONTROL_ECRC_GEN_ENABLE;
constexpr std::uint32_t CHK_CAP = pci::AER_CONTROL_ECRC_CHK_CAPABLE,
                        CHK_ON = pci::AER_CONTROL_ECRC_CHK_ENABLE;

// One function, to be written with designated initialisers.
struct FunctionSpec {
    RoutingId id;
    std::optional<std::uint8_t> port = PORT_TYPE_ENDPOINT;  // none: a conventional PCI function
    std::uint8_t secondary = 0;                             // above 0: a bridge
    std::uint8_t subordinate = secondary;
    unsigned payload_cap = 0;            // Device Capabilities; code in Device Control
    unsigned payload_set = 0;            //
    std::uint32_t link_cap = 0;          // Link Capabilities
    bool fast_b2b = false;               // Status: fast back-to-back capable
    std::optional<std::uint32_t> aer{};  // AER Capabilities and Control; none: no AER capability
    bool ari_forwarding = false;
    std::optional<std::uint8_t> next_ari{};  // ARI capability with this Next Function Number
    std::uint32_t class_code = secondary ? PCI_BRIDGE_CLASS : 0x020000;
    unsigned size = pci::EXT_CONFIG_SIZE;
    std::vector<std::pair<unsigned, std::uint32_t>> dwords{};  // by offset, on top of all above
};

// The offsets of the capabilities of these functions.
constexpr unsigned PCIE_AT = 0x40;
constexpr unsigned DEVCTL_AT = PCIE_AT + pci::DEVCTL;
constexpr unsigned LINKCTL_AT = PCIE_AT + pci::LINKCTL;
constexpr unsigned AER_CONTROL_AT = pci::EXT_CAPS + pci::AER_CONTROL;

// Returns the configuration space of a function; `multi_function` sets Header Type, Multi-Function
// Device.
std::vector<std::uint8_t> config_bytes(const FunctionSpec &spec, bool multi_function);

using Words = std::vector<std::string>;

Words words(const std::string &text);

// "0.1:4>1-3" is function 00:01.0 of port type 4, a bridge to buses 1 to 3, and "5.0.2:0" an
// endpoint with a function number; type "-" makes a conventional function. "=700,c00" behind all
// that gives Device Capabilities in octal and Link Capabilities in hexadecimal; without it, links
// support L0s and L1. All are capable of fast back-to-back transfers.
std::vector<FunctionSpec> functions(const std::string &text);

struct TestMachine {
    explicit TestMachine(const std::vector<FunctionSpec> &functions);

    std::uint32_t get(RoutingId id, unsigned offset, unsigned width = 4);
    std::uint32_t aer(RoutingId id) { return get(id, AER_CONTROL_AT); }
    bridge_rec *bridge(RoutingId id) { return machine->bridges().by_bdf(id); }

    ConfigImage image;
    std::string warnings;  // of the machine
    std::optional<Machine> machine;
};

}  // namespace host::tests
