#include "topology/classification.h"

#include "module/base/capability_call.h"
#include "module/base/host_symbols.h"
#include "module/base/log.h"
#include "module/base/pcie_capability.h"
#include "platform/pci_access.h"

namespace enable_features {

namespace {

bool has_ari_capability(bdf_t bdf) {
    heap_ptr<pcie_cap_t> cap;
    return read_pcie_cap(bdf, cap) == PCI_OK &&
           call(cap.get(), &pcie_cap_ops_t::find_ext_cap, EXT_CAPID_ARI) >= 0;
}

bool is_endpoint_type(std::uint32_t type) {
    return type == PORT_TYPE_ENDPOINT || type == PORT_TYPE_LEGACY_ENDPOINT ||
           type == PORT_TYPE_RCIEP;
}

// Stores the type in `type` for every PCI Express function, endpoint or not.
bool is_endpoint(bdf_t bdf, std::uint32_t &type) {
    if (bdf == BDF_NONE || pci_device_get_type(bdf, &type) != DEV_TYPE_PCIE)
        return false;
    return is_endpoint_type(type) && (!pci::is_ari(bdf) || has_ari_capability(bdf));
}

bridge_rec *climb(bridge_rec *bridge) {
    while (!is_topmost(bridge))
        bridge = bridge->parent;
    return bridge;
}

// Returns the topmost bridge above `bdf`, or the bridge at `bdf` when it is on a root bus.
bridge_rec *topmost_bridge(bdf_t bdf) {
    bridge_rec *parent = find_parent_bridge(nullptr, bdf);
    if (parent == nullptr || parent->class_code == HOST_BRIDGE_CLASS)
        return find_bridge_bdf(nullptr, bdf);
    return climb(parent);
}

bool is_root_port(bdf_t bdf) {
    std::uint32_t type = 0;
    return pci_device_get_type(bdf, &type) == DEV_TYPE_PCIE && type == PORT_TYPE_ROOT_PORT;
}

}  // namespace

bool is_topmost(const bridge_rec *bridge) {
    return bridge->parent == nullptr || bridge->parent->class_code == HOST_BRIDGE_CLASS;
}

bool is_an_ep(bdf_t bdf, std::uint32_t *port_type) {
    std::uint32_t type = 0;
    const bool answer = is_endpoint(bdf, type);
    if (answer && port_type != nullptr)
        *port_type = type;
    LOG_DEBUG(3, "%s(B%u:D%u:F%u, %p=%d), %c", "is_an_ep", BDF_ARGS(bdf),
              static_cast<void *>(port_type),
              port_type != nullptr ? static_cast<int>(*port_type) : -1, answer ? 'T' : 'F');
    return answer;
}

bridge_rec *find_rp(bridge_rec *bridge) {
    bridge_rec *topmost = climb(bridge);
    LOG_DEBUG(3, "%s(B%u:D%u:F%u) returns B%u:D%u:F%u", "find_rp", BDF_ARGS(bridge->bdf),
              BDF_ARGS(topmost->bdf));
    return topmost;
}

bridge_rec *find_root_port(bdf_t bdf) {
    bridge_rec *root_port = topmost_bridge(bdf);
    if (root_port != nullptr && !is_root_port(root_port->bdf))
        root_port = nullptr;
    // BDF_NONE prints as 255, 0, 255.
    LOG_DEBUG(2, "%s(B%u:D%u:F%u), %p (B%u:D%u:F%u)", "find_root_port", BDF_ARGS(bdf),
              static_cast<void *>(root_port),
              BDF_ARGS(root_port != nullptr ? root_port->bdf : BDF_NONE));
    return root_port;
}

}  // namespace enable_features
