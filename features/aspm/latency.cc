// A state stays enabled while the latency that the endpoints accept is not below the exit latency
// of the link; equal values keep it. For L1, each further bridge of the chain may add a
// microsecond, because it wakes its own link only after it has been woken.
//
// Limit: only the chain of first children is followed; what is behind the other ports of a switch
// does not count.
#include "features/aspm/latency.h"

#include <algorithm>

#include "module/base/capability_call.h"
#include "module/base/log.h"
#include "module/base/pcie_capability.h"
#include "platform/pci_regs.h"
#include "topology/bridge_links.h"

namespace enable_features {

namespace {

constexpr unsigned CODES = 8;  // values of a 3-bit latency field

// Nanoseconds for each value of a latency field: those of L0s, then those of L1. The highest exit
// value stands for "more than that", the highest acceptable value for "no limit".
constexpr std::uint32_t exit_latency_table[2 * CODES] = {
    63,  127,  255,  511,  999,   1999,  4000,  4001,   //
    999, 1999, 3999, 7999, 15999, 31999, 64000, 64001,  //
};
constexpr std::uint32_t acceptable_latency_table[2 * CODES] = {
    64,   128,  256,  512,  1000,  2000,  4000,  NO_LATENCY_LIMIT,  //
    1000, 2000, 4000, 8000, 16000, 32000, 64000, NO_LATENCY_LIMIT,  //
};

constexpr unsigned NO_LIMIT_CODE = CODES - 1;
constexpr std::uint32_t L1_NANOSECONDS_PER_BRIDGE = 1000;

// The fields that hold the latencies of one state.
struct state_fields_t {
    std::uint32_t exit_latency;        // mask in Link Capabilities
    std::uint32_t acceptable_latency;  // mask in Device Capabilities
};

constexpr state_fields_t fields_of(std::uint32_t state) {
    if (state == ASPM_L0S)
        return {pci::LINKCAP_L0S_EXIT_LATENCY, pci::DEVCAP_L0S_ACCEPTABLE_LATENCY};
    return {pci::LINKCAP_L1_EXIT_LATENCY, pci::DEVCAP_L1_ACCEPTABLE_LATENCY};
}

constexpr unsigned table_index(std::uint32_t state, unsigned code) {
    return (state - 1) * CODES + code;
}

pci_err_t read_exit_latency(pcie_cap_t *cap, std::uint32_t state, std::uint32_t &latency) {
    std::uint32_t linkcap = 0;
    const pci_err_t result = call(cap, &pcie_cap_ops_t::read_linkcap, &linkcap);
    if (result == PCI_OK)
        latency = exit_latency_table[table_index(state,
                                                 pci::get(linkcap, fields_of(state).exit_latency))];
    return result;
}

std::uint32_t bridges_on_first_chain(const bridge_rec *bridge) {
    std::uint32_t count = 0;
    while ((bridge = first_child(bridge)) != nullptr)
        count++;
    return count;
}

pci_err_t link_exit_latency(bridge_rec *bridge, pcie_cap_t *device_cap, std::uint32_t state,
                            std::uint32_t *latency) {
    std::uint32_t of_device = 0;
    pci_err_t result = read_exit_latency(device_cap, state, of_device);
    if (result != PCI_OK)
        return result;
    std::uint32_t of_bridge = 0;
    result = read_exit_latency(bridge->pcie_cap, state, of_bridge);
    if (result != PCI_OK)
        return result;
    *latency = std::max(of_device, of_bridge);
    if (state == ASPM_L1)
        *latency += L1_NANOSECONDS_PER_BRIDGE * bridges_on_first_chain(bridge);
    return PCI_OK;
}

// Returns the latency that one function accepts; 0 when its register cannot be read.
std::uint32_t accepted_by(bdf_t bdf, std::uint32_t state) {
    const int index = pci_device_find_capid(bdf, CAPID_PCIE);
    if (index < 0) {
        LOG_DEBUG(2, "%s(), EP device B%u:D%u:F%u is not PCIe ???", "acceptable_ep_latency",
                  BDF_ARGS(bdf));
        return 0;
    }
    heap_ptr<pcie_cap_t> cap;
    std::uint32_t devcap = 0;
    if (read_pcie_cap_at(bdf, index, cap) != PCI_OK ||
        call(cap.get(), &pcie_cap_ops_t::read_devcap, &devcap) != PCI_OK)
        return 0;
    return acceptable_latency_table[table_index(
        state, pci::get(devcap, fields_of(state).acceptable_latency))];
}

void report_accepted(const bridge_rec *bridge, std::uint32_t state, std::uint32_t latency,
                     bdf_t by) {
    LOG_DEBUG(2, "%s(B%u:D%u:F%u, %u) returns %u for EP device B%u:D%u:F%u",
              "acceptable_ep_latency", BDF_ARGS(bridge->bdf), state, latency, BDF_ARGS(by));
}

// Returns the largest latency that a function on the bridge's secondary bus accepts.
std::uint32_t accepted_on_bus(const bridge_rec *bridge, std::uint32_t state) {
    const std::span<const bdf_t> functions = functions_below(bridge);
    if (functions.empty()) {
        LOG_DEBUG(2, "%s(B%u:D%u:F%u, %u) returns %u, no EP device(s)", "acceptable_ep_latency",
                  BDF_ARGS(bridge->bdf), state, 0U);
        return 0;
    }
    std::uint32_t largest = 0;
    bdf_t by = BDF_NONE;
    for (const bdf_t &place : functions) {
        const bdf_t bdf = load(place);
        const std::uint32_t latency = accepted_by(bdf, state);
        if (latency > largest) {
            largest = latency;
            by = bdf;
        }
    }
    report_accepted(bridge, state, largest, by);
    return largest;
}

// Returns the ASPM Control value for a link both of whose ends support both states.
std::uint32_t level_of_both(bridge_rec *bridge, pcie_cap_t *device_cap) {
    std::uint32_t l0s_exit = 0;
    std::uint32_t l1_exit = 0;
    if (calc_exit_latency(bridge, device_cap, ASPM_L0S, &l0s_exit) != PCI_OK ||
        calc_exit_latency(bridge, device_cap, ASPM_L1, &l1_exit) != PCI_OK)
        return ASPM_NONE;
    const std::uint32_t l0s_acceptable = acceptable_ep_latency(bridge, ASPM_L0S);
    const std::uint32_t l1_acceptable = acceptable_ep_latency(bridge, ASPM_L1);
    LOG_DEBUG(2, "%s(), L0s/L1 exit latencies = %u/%u, L0s/L1 acceptable latencies = %u/%u",
              "find_aspm_level", l0s_exit, l1_exit, l0s_acceptable, l1_acceptable);
    const std::uint32_t l0s = l0s_acceptable < l0s_exit ? ASPM_NONE : ASPM_L0S;
    const std::uint32_t l1 = l1_acceptable < l1_exit ? ASPM_NONE : ASPM_L1;
    return l0s | l1;
}

// Returns the ASPM Control value for a link whose ends have one state in common.
std::uint32_t level_of_one(bridge_rec *bridge, pcie_cap_t *device_cap, std::uint32_t state) {
    std::uint32_t exit = 0;
    if (calc_exit_latency(bridge, device_cap, state, &exit) != PCI_OK)
        return ASPM_NONE;
    const std::uint32_t acceptable = acceptable_ep_latency(bridge, state);
    LOG_DEBUG(2, "%s(), exit latency = %u, acceptable latency = %u", "find_aspm_level", exit,
              acceptable);
    return acceptable < exit ? ASPM_NONE : state;
}

std::uint32_t level_of(bridge_rec *bridge, pcie_cap_t *device_cap, std::uint32_t common) {
    switch (common) {
    case ASPM_NONE:
        return ASPM_NONE;
    case ASPM_L0S_L1:
        return level_of_both(bridge, device_cap);
    default:
        return level_of_one(bridge, device_cap, common);
    }
}

}  // namespace

pci_err_t calc_exit_latency(bridge_rec *bridge, pcie_cap_t *device_cap, std::uint32_t state,
                            std::uint32_t *latency) {
    const pci_err_t result = link_exit_latency(bridge, device_cap, state, latency);
    LOG_DEBUG(2, "%s(B%u:D%u:F%u, B%u:D%u:F%u, %u, %p=%u), %s", "calc_exit_latency",
              BDF_ARGS(bridge->bdf), BDF_ARGS(device_cap->head.bdf), state,
              static_cast<void *>(latency), *latency, pci_strerror(result));
    return result;
}

std::uint32_t acceptable_ep_latency(bridge_rec *bridge, std::uint32_t state) {
    LOG_DEBUG(2, "%s(B%u:D%u:F%u, %u)", "acceptable_ep_latency", BDF_ARGS(bridge->bdf), state);
    bridge_rec *const child = first_child(bridge);
    if (child == nullptr)
        return accepted_on_bus(bridge, state);
    std::uint8_t port_type = 0;
    if (child->pcie_cap == nullptr ||
        call(child->pcie_cap, &pcie_cap_ops_t::get_port_type, &port_type) != PCI_OK)
        return 0;
    if (port_type != PORT_TYPE_PCIE_TO_PCI)
        return acceptable_ep_latency(child, state);
    // Functions on a conventional bus have no link of their own, so they accept any latency.
    const std::uint32_t latency = acceptable_latency_table[table_index(state, NO_LIMIT_CODE)];
    report_accepted(bridge, state, latency, child->bdf);
    return latency;
}

// An ASPM value is a set of states, so the intersection holds those that both ends support.
std::uint32_t find_aspm_level(bridge_rec *bridge, std::uint32_t up_support, pcie_cap_t *device_cap,
                              std::uint32_t down_support) {
    const std::uint32_t level = level_of(bridge, device_cap, up_support & down_support);
    LOG_DEBUG(2, "%s(B%u:D%u:F%u, %u, B%u:D%u:F%u, %u), aspm = %u", "find_aspm_level",
              BDF_ARGS(bridge->bdf), up_support, BDF_ARGS(device_cap->head.bdf), down_support,
              level);
    return level;
}

}  // namespace enable_features
