// Enabling begins at the upstream end and disabling at the downstream end, so that the downstream
// end never asks for a state that the upstream end does not allow.
#include "features/aspm/link_control.h"

#include "features/aspm/latency.h"
#include "module/base/capability_call.h"
#include "module/base/host_symbols.h"
#include "module/base/log.h"
#include "module/base/pcie_capability.h"
#include "platform/pci_regs.h"
#include "topology/bridge_links.h"
#include "topology/bridge_walk.h"

namespace enable_features {

namespace {

// Reads Link Capabilities, ASPM Support, of one end of a link.
pci_err_t read_support(pcie_cap_t *cap, std::uint32_t &support) {
    std::uint32_t linkcap = 0;
    const pci_err_t result = call(cap, &pcie_cap_ops_t::read_linkcap, &linkcap);
    if (result == PCI_OK)
        support = pci::get(linkcap, pci::LINKCAP_ASPM_SUPPORT);
    return result;
}

// Gets the states that the bridge supports on the link below it; never ASPM_NONE on success.
pci_err_t upstream_support(const bridge_rec *bridge, std::uint32_t &support) {
    if (bridge->pcie_cap == nullptr || bridge->class_code == HOST_BRIDGE_CLASS)
        return PCI_ERR_NOT_SUPPORTED;
    std::uint8_t port_type = 0;
    if (call(bridge->pcie_cap, &pcie_cap_ops_t::get_port_type, &port_type) != PCI_OK) {
        LOG_DEBUG(2, "unable to determine port type");
        return PCI_ERR_NOT_SUPPORTED;
    }
    if (!pci::is_above_link(port_type)) {
        LOG_DEBUG(2, "unsupported downstream port type %u", port_type);
        return PCI_ERR_NOT_SUPPORTED;
    }
    const pci_err_t result = read_support(bridge->pcie_cap, support);
    if (result != PCI_OK || support != ASPM_NONE)
        return result;
    LOG_DEBUG(2, "ASPM not supported by upstream device");
    return PCI_ERR_NOT_SUPPORTED;
}

// Returns the downstream component, BDF_NONE when there is none.
bdf_t downstream_device(const bridge_rec *bridge) {
    const std::span<const bdf_t> functions = functions_below(bridge);
    if (!functions.empty())
        return load(functions.front());
    const bridge_rec *child = child_count(bridge) != 0 ? first_child(bridge) : nullptr;
    return child != nullptr ? child->bdf : BDF_NONE;
}

// Gets the states that the downstream component supports, never ASPM_NONE on success, and its
// capability. `cap` may be set on failure too.
pci_err_t downstream_support(const bridge_rec *bridge, heap_ptr<pcie_cap_t> &cap,
                             std::uint32_t &support) {
    const bdf_t device = downstream_device(bridge);
    if (device == BDF_NONE) {
        LOG_DEBUG(2, "no downstream device");
        return PCI_ERR_NO_DEVICE;
    }
    const int index = pci_device_find_capid(device, CAPID_PCIE);
    if (index < 0) {
        LOG_DEBUG(2, "downstream device is not PCIe");
        return PCI_ERR_NOT_SUPPORTED;
    }
    pci_err_t result = read_pcie_cap_at(device, index, cap);
    if (result == PCI_OK)
        result = read_support(cap.get(), support);
    if (result != PCI_OK || support != ASPM_NONE)
        return result;
    LOG_DEBUG(2, "ASPM not supported by downstream device");
    return PCI_ERR_NOT_SUPPORTED;
}

pci_err_t set_both_ends(pcie_cap_t *upstream, pcie_cap_t *downstream, std::uint32_t level) {
    pci_err_t result = set_link_aspm(upstream, level);
    if (result == PCI_OK)
        result = set_link_aspm(downstream, level);
    if (result != PCI_OK)
        set_link_aspm(upstream, ASPM_NONE);
    return result;
}

// ASPM_NONE is written too, because states that the latencies forbid must be switched off.
pci_err_t enable_link(bridge_rec *bridge) {
    std::uint32_t up_support = ASPM_NONE;
    std::uint32_t down_support = ASPM_NONE;
    heap_ptr<pcie_cap_t> device;
    pci_err_t result = upstream_support(bridge, up_support);
    if (result == PCI_OK)
        result = downstream_support(bridge, device, down_support);
    if (result != PCI_OK)
        return result;
    const std::uint32_t level = find_aspm_level(bridge, up_support, device.get(), down_support);
    return set_both_ends(bridge->pcie_cap, device.get(), level);
}

// The bridge's ASPM Control is set to ASPM_NONE even if the downstream component cannot be written.
pci_err_t disable_link(bridge_rec *bridge) {
    std::uint32_t up_support = ASPM_NONE;
    const pci_err_t result = upstream_support(bridge, up_support);
    if (result != PCI_OK)
        return result;
    std::uint32_t down_support = ASPM_NONE;
    heap_ptr<pcie_cap_t> device;
    if (downstream_support(bridge, device, down_support) == PCI_OK)
        set_link_aspm(device.get(), ASPM_NONE);
    return set_link_aspm(bridge->pcie_cap, ASPM_NONE);
}

void report_link(const char *operation, const bridge_rec *bridge, pci_err_t result) {
    LOG_INFO(1, "%s() on PCIe link for bridge B%u:D%u:F%u, %s", operation, BDF_ARGS(bridge->bdf),
             pci_strerror(result));
}

// Calls `one` for a single link, or `all` for the whole tree when `bdf` is BDF_NONE.
pci_err_t apply_by_bdf(bdf_t bdf, pci_err_t (*one)(bridge_rec *bridge),
                       pci_err_t (*all)(bridge_rec *first)) {
    if (bdf == BDF_NONE)
        return all(find_parent_bridge(nullptr, BDF_NONE));
    bridge_rec *const bridge = bridge_at_or_above(bdf);
    return bridge != nullptr ? one(bridge) : PCI_ERR_NO_DEVICE;
}

}  // namespace

pci_err_t set_link_aspm(pcie_cap_t *cap, std::uint32_t level) {
    std::uint16_t linkctl = 0;
    const pci_err_t result = call(cap, &pcie_cap_ops_t::read_linkctl, &linkctl);
    if (result != PCI_OK)
        return result;
    linkctl = pci::set(linkctl, pci::LINKCTL_ASPM, level);
    return call(cap, &pcie_cap_ops_t::write_linkctl, pci::token_of(cap->head.bdf), &linkctl);
}

pci_err_t _enable_aspm(bridge_rec *bridge) {
    const pci_err_t result = enable_link(bridge);
    report_link("_enable_aspm", bridge, result);
    return result;
}

pci_err_t _disable_aspm(bridge_rec *bridge) {
    const pci_err_t result = disable_link(bridge);
    report_link("_disable_aspm", bridge, result);
    return result;
}

pci_err_t enable_aspm(bridge_rec *bridge) {
    walk_bridges(bridge, "enable_aspm", [](bridge_rec *each) { _enable_aspm(each); });
    return PCI_OK;
}

pci_err_t disable_aspm(bridge_rec *bridge) {
    walk_bridges(bridge, "disable_aspm", [](bridge_rec *each) { _disable_aspm(each); });
    return PCI_OK;
}

pci_err_t enable_aspm_feature(bdf_t bdf) {
    return apply_by_bdf(bdf, _enable_aspm, enable_aspm);
}

pci_err_t disable_aspm_feature(bdf_t bdf) {
    return apply_by_bdf(bdf, _disable_aspm, disable_aspm);
}

}  // namespace enable_features
