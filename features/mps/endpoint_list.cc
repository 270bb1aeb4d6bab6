#include "features/mps/endpoint_list.h"

#include <cstdlib>

#include "features/mps/register_access.h"
#include "module/base/guards.h"
#include "module/base/log.h"
#include "module/base/managed.h"
#include "platform/pci_access.h"
#include "topology/classification.h"

namespace enable_features {

pthread_once_t ep_list_once = PTHREAD_ONCE_INIT;
bdf_index_t device_index;

namespace {

constexpr char BUILD[] = "ep_list_once_init";  // the build's name in messages

// The caller holds the list's lock, or is the build, during which no other thread uses the list.
mps_entry *find_device(bdf_t key) {
    return static_cast<mps_entry *>(find_indexed(device_index, key));
}

// The caller holds the list's lock.
void append_device(mps_entry *entry) {
    append_entry(ep_list(), entry);
    add_to_index(device_index, entry->bdf, entry);
}

// Adds an entry for the device of `bdf`, the function through which the device was found.
void add_mps_entry(bdf_t bdf) {
    auto *entry = static_cast<mps_entry *>(std::calloc(1, sizeof(mps_entry)));
    if (entry == nullptr) {
        LOG_ERROR(0, "%s, unable to allocate mps_entry", BUILD);
        return;
    }
    entry->bdf = device_key(bdf);
    entry->upstream = find_bridge_sec_busnum(nullptr, pci::bus_of(entry->bdf));
    if (entry->upstream != nullptr)
        entry->rp = find_rp_entry(find_rp(entry->upstream));
    {
        const mutex_guard guard(ep_list().lock);
        append_device(entry);
    }
    LOG_DEBUG(3, "%s, new entry for B%u:D%u:F%u added", BUILD, BDF_ARGS(bdf));
}

// Function 0 always stands for its device. Another function does only when function 0 did not get
// an entry (it is no endpoint, or managed elsewhere), and then only the first one.
bool stands_for_device(bdf_t bdf) {
    return pci::function_of(bdf) == 0 ||
           (pci_device_is_multi_func(bdf) && find_device(device_key(bdf)) == nullptr);
}

void consider_function(bdf_t bdf) {
    std::uint32_t port_type = 0;
    if (skip_unmanaged(BUILD, bdf) || !is_an_ep(bdf, &port_type))
        return;
    if (port_type == PORT_TYPE_RCIEP) {
        LOG_INFO(2, "RCiEP B%u:D%u:F%u excluded", BDF_ARGS(bdf));
        return;
    }
    if (stands_for_device(bdf))
        add_mps_entry(bdf);
}

void request_all(std::uint32_t mps) {
    for (mps_entry *entry = first_mps_entry(ep_list()); entry != nullptr;
         entry = next_mps_entry(entry))
        entry->mps = mps;
}

}  // namespace

void ep_list_once_init() {
    entry_list_t &list = ep_list();
    list.first = nullptr;
    list.last = nullptr;
    list.count = 0;
    pthread_mutex_init(&list.lock, nullptr);

    for (std::uint32_t index = 0;; index++) {
        const bdf_t bdf = pci_device_find(index, ANY_VENDOR, ANY_DEVICE, ANY_CLASS);
        if (bdf == BDF_NONE)
            return;
        consider_function(bdf);
    }
}

mps_entry *mps_find_entry(bdf_t bdf) {
    pthread_once(&ep_list_once, ep_list_once_init);
    mps_entry *entry = nullptr;
    {
        const mutex_guard guard(ep_list().lock);
        entry = find_device(device_key(bdf));
    }
    LOG_DEBUG(3, "%s(B%u:D%u:F%u) returns %p", "mps_find_entry", BDF_ARGS(bdf),
              static_cast<void *>(entry));
    return entry;
}

pci_err_t mps_update_entry(bdf_t bdf, std::uint32_t mps) {
    pthread_once(&ep_list_once, ep_list_once_init);
    if (mps != MPS_MAX && !is_a_supported_mps(mps))
        return PCI_ERR_INVALID;
    const mutex_guard guard(ep_list().lock);
    if (bdf == BDF_NONE)
        request_all(mps);
    else if (mps_entry *entry = find_device(device_key(bdf)))
        entry->mps = mps;
    return PCI_OK;
}

}  // namespace enable_features
