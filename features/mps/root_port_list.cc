#include "features/mps/root_port_list.h"

#include <cstdlib>

#include "features/mps/register_access.h"
#include "module/base/capability_call.h"
#include "module/base/guards.h"
#include "module/base/host_symbols.h"
#include "module/base/log.h"
#include "module/base/managed.h"
#include "platform/pci_access.h"

namespace enable_features {

entry_list_t rp_list = {
    .first = nullptr, .last = nullptr, .count = 0, .lock = PTHREAD_MUTEX_INITIALIZER};
pthread_once_t rp_list_init_once = PTHREAD_ONCE_INIT;

namespace {

constexpr char BUILD[] = "init_rp_mps_max";  // the build's name in messages

bdf_t bridge_function(std::uint32_t index) {
    return pci_device_find(index, ANY_VENDOR, ANY_DEVICE, PCI_BRIDGE_CLASS | ANY_INTERFACE);
}

// Appends an entry without building the list first: the build calls this, and would wait for its
// own end.
pci_err_t append_rp_entry(bridge_rec *bridge, std::uint32_t path_max) {
    auto *entry = static_cast<rp_entry *>(std::calloc(1, sizeof(rp_entry)));
    if (entry == nullptr)
        return PCI_ERR_NO_MEMORY;
    entry->path_max = path_max;
    entry->bridge = bridge;
    const mutex_guard guard(rp_list.lock);
    append_entry(rp_list, entry);
    return PCI_OK;
}

void add_root_port(bridge_rec *bridge) {
    std::uint32_t path_max = NO_PATH_MAX;
    find_rp_mps(bridge, &path_max);
    LOG_DEBUG(3, "%s, B%u:D%u:F%u, path_max = %u", BUILD, BDF_ARGS(bridge->bdf), path_max);
    const pci_err_t result = append_rp_entry(bridge, path_max);
    if (result != PCI_OK)
        LOG_ERROR(0, "%s(), add_rp_entry(B%u:D%u:F%u, %u) failed, %s", BUILD, BDF_ARGS(bridge->bdf),
                  path_max, pci_strerror(result));
    else
        LOG_DEBUG(3, "%s(), add_rp_entry(B%u:D%u:F%u, %u), %s", BUILD, BDF_ARGS(bridge->bdf),
                  path_max, pci_strerror(result));
}

// Adds one bridge function to the list if it is a managed root port. `status` becomes the result of
// reading its port type; it stays as it was when there is no register to read.
void consider_bridge(bdf_t bdf, pci_err_t &status) {
    if (skip_unmanaged(BUILD, bdf))
        return;
    bridge_rec *bridge = find_bridge_bdf(nullptr, bdf);
    if (bridge == nullptr || bridge->pcie_cap == nullptr)
        return;
    std::uint8_t port_type = 0;
    status = call(bridge->pcie_cap, &pcie_cap_ops_t::get_port_type, &port_type);
    if (status == PCI_OK && port_type == PORT_TYPE_ROOT_PORT)
        add_root_port(bridge);
}

// Only sizes that can be programmed count: 0 (not readable) and the reserved values lower nothing.
bool lowers(std::uint32_t size, std::uint32_t path_max) {
    return is_a_supported_mps(size) && size < path_max;
}

void visit_children(bridge_rec *bridge, std::uint32_t *path_max) {
    const mutex_guard guard(bridge->children_lock);
    for (bridge_rec *child = bridge->children; child != nullptr; child = child->next_sibling)
        find_rp_mps(child, path_max);
}

void visit_bridge(const bridge_rec *bridge, std::uint32_t *path_max) {
    const std::uint32_t size = mps_read_max_capable(bridge->pcie_cap, bridge->bdf);
    if (!lowers(size, *path_max))
        return;
    LOG_DEBUG(3, "%s, path_max updated from %u to %u for bridge B%u:D%u:F%u", "find_rp_mps",
              *path_max, size, BDF_ARGS(bridge->bdf));
    *path_max = size;
}

void visit_function(bdf_t bdf, std::uint32_t *path_max) {
    const std::uint32_t size = mps_read_max_capable(nullptr, bdf);
    if (!lowers(size, *path_max))
        return;
    LOG_DEBUG(3, "%s, path_max updated from %u to %u for EP B%u:D%u:F%u", "find_rp_mps", *path_max,
              size, BDF_ARGS(bdf));
    *path_max = size;
}

}  // namespace

void rp_list_init_once_init() {
    rp_list.first = nullptr;
    rp_list.last = nullptr;
    rp_list.count = 0;
    pthread_mutex_init(&rp_list.lock, nullptr);

    bdf_t bdf = bridge_function(0);
    LOG_DEBUG(2, "%s() start ...", BUILD);
    pci_err_t status = PCI_ERR_NO_DEVICE;  // stays when no bridge's port type could be read
    for (std::uint32_t index = 1; bdf != BDF_NONE; index++) {
        consider_bridge(bdf, status);
        bdf = bridge_function(index);
    }
    LOG_DEBUG(2, "%s() end, %s", BUILD, pci_strerror(status));
}

// Recurses as deep as bridges stand above each other.
void find_rp_mps(bridge_rec *bridge, std::uint32_t *path_max) {
    LOG_DEBUG(3, "%s(B%u:D%u:F%u, %p=%u)", "find_rp_mps", BDF_ARGS(bridge->bdf),
              static_cast<void *>(path_max), *path_max);
    visit_children(bridge, path_max);
    visit_bridge(bridge, path_max);
    const read_guard guard(bridge->devs_lock);
    for (std::uint32_t index = 0; index < bridge->num_devs; index++)
        visit_function(bridge->devs[index], path_max);
}

pci_err_t add_rp_entry(bridge_rec *bridge, std::uint32_t path_max) {
    pthread_once(&rp_list_init_once, rp_list_init_once_init);
    return append_rp_entry(bridge, path_max);
}

rp_entry *find_rp_entry(bridge_rec *bridge) {
    pthread_once(&rp_list_init_once, rp_list_init_once_init);
    rp_entry *found = nullptr;
    {
        const mutex_guard guard(rp_list.lock);
        for (list_entry_t *link = rp_list.first; link != nullptr && found == nullptr;
             link = link->next) {
            auto *entry = static_cast<rp_entry *>(link);
            if (entry->bridge == bridge)
                found = entry;
        }
    }
    LOG_DEBUG(3, "%s(%p=B%u:D%u:F%u) returns %p", "find_rp_entry", static_cast<void *>(bridge),
              BDF_ARGS(bridge->bdf), static_cast<void *>(found));
    return found;
}

}  // namespace enable_features
