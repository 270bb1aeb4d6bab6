#include "features/mps/register_access.h"

#include <bitset>

#include "module/base/capability_call.h"
#include "module/base/log.h"
#include "module/base/pcie_capability.h"
#include "platform/pci_regs.h"
#include "platform/server.h"
#include "topology/classification.h"

namespace enable_features {

namespace {

constexpr std::size_t FUNCTIONS_PER_ARI_DEVICE = pci::HIGHEST_ARI_FUNCTION + 1;

// The arguments of mps_write_mps(), for the messages.
struct write_request_t {
    pcie_cap_t *cap;
    bdf_t bdf;
    std::uint32_t size;
};

// Every message of mps_write_mps() begins with this text and has these arguments.
#define WRITE_CALL "%s(%p, B%u:D%u:F%u, %u)"
#define WRITE_ARGS(request)                                                                        \
    "mps_write_mps", static_cast<void *>((request).cap), BDF_ARGS((request).bdf), (request).size

std::uint32_t read_devcap_mps(pcie_cap_t *cap) {
    std::uint32_t devcap = 0;
    if (call(cap, &pcie_cap_ops_t::read_devcap, &devcap) != PCI_OK)
        return 0;
    return decode_mps(pci::get(devcap, pci::DEVCAP_MPSS));
}

std::uint32_t read_max_capable(pcie_cap_t *cap, bdf_t bdf) {
    if (cap != nullptr)
        return read_devcap_mps(cap);
    heap_ptr<pcie_cap_t> own;
    return read_pcie_cap(bdf, own) == PCI_OK ? read_devcap_mps(own.get()) : 0;
}

// Reads, changes and checks Device Control through `cap`.
pci_err_t change_devctl(pcie_cap_t *cap, const write_request_t &request) {
    std::uint16_t devctl = 0;
    pci_err_t result = call(cap, &pcie_cap_ops_t::read_devctl, &devctl);
    if (result != PCI_OK) {
        LOG_ERROR(0, WRITE_CALL ", MPS read failed, %s", WRITE_ARGS(request), pci_strerror(result));
        return result;
    }
    if (decode_mps(pci::get(devctl, pci::DEVCTL_MPS)) == request.size) {
        LOG_INFO(2, WRITE_CALL ", MPS already set", WRITE_ARGS(request));
        return PCI_OK;
    }
    devctl = pci::set(devctl, pci::DEVCTL_MPS, encode_mps(request.size));
    result = call(cap, &pcie_cap_ops_t::write_devctl, 0U, &devctl);
    if (result != PCI_OK) {
        LOG_ERROR(0, WRITE_CALL ", MPS write failed, %s", WRITE_ARGS(request),
                  pci_strerror(result));
        return result;
    }
    // `devctl` now holds what the register reads, so a size that did not take shows here.
    const std::uint32_t now = decode_mps(pci::get(devctl, pci::DEVCTL_MPS));
    if (now != request.size)
        return PCI_ERR_IO;
    LOG_INFO(2, WRITE_CALL ", MPS changed to %u", WRITE_ARGS(request), now);
    return PCI_OK;
}

pci_err_t write_mps(const write_request_t &request) {
    if (request.cap != nullptr)
        return change_devctl(request.cap, request);
    heap_ptr<pcie_cap_t> cap;
    const pci_err_t result = read_pcie_cap(request.bdf, cap);
    return result == PCI_OK ? change_devctl(cap.get(), request) : result;
}

// Follows the device's chain of Next Function Numbers. A chain that comes back to a function
// visited before would never end, so the walk ends there.
pci_err_t write_ari_functions(bdf_t bdf, std::uint32_t size) {
    std::bitset<FUNCTIONS_PER_ARI_DEVICE> visited;
    pci_err_t result = PCI_OK;
    visited.set(pci::function_of(bdf));
    std::uint32_t next = enum_next_ari_func(bdf, 0);
    while (next < FUNCTIONS_PER_ARI_DEVICE && !visited[next]) {
        visited.set(next);
        const bdf_t function = pci::ari_bdf(pci::bus_of(bdf), next);
        result = mps_write_mps(nullptr, function, size);
        next = enum_next_ari_func(function, 0);
    }
    return result;
}

// An absent function is no error; a function that cannot be read is.
pci_err_t write_if_present(bdf_t bdf, std::uint32_t size) {
    std::uint16_t vendor = pci::VENDOR_ID_NONE;
    const pci_err_t result = pci_device_read_vid(bdf, &vendor);
    if (result == PCI_ERR_NO_DEVICE)
        return PCI_OK;
    if (result != PCI_OK || vendor == pci::VENDOR_ID_NONE)
        return result;
    return mps_write_mps(nullptr, bdf, size);
}

pci_err_t write_plain_functions(bdf_t bdf, std::uint32_t size) {
    pci_err_t result = PCI_OK;
    for (unsigned function = 1; function <= pci::HIGHEST_FUNCTION; function++)
        result = write_if_present(pci::function_0_of(bdf) | function, size);
    return result;
}

}  // namespace

std::uint32_t mps_read_max_capable(pcie_cap_t *cap, bdf_t bdf) {
    const std::uint32_t size = read_max_capable(cap, bdf);
    LOG_DEBUG(3, "%s(%p, B%u:D%u:F%u) returns %u", "mps_read_max_capable", static_cast<void *>(cap),
              BDF_ARGS(bdf), size);
    return size;
}

pci_err_t mps_write_mps(pcie_cap_t *cap, bdf_t bdf, std::uint32_t size) {
    const write_request_t request = {.cap = cap, .bdf = bdf, .size = size};
    const pci_err_t result = write_mps(request);
    LOG_DEBUG(3, WRITE_CALL ", %s", WRITE_ARGS(request), pci_strerror(result));
    return result;
}

pci_err_t mps_write_mps_all_funcs(bdf_t bdf, std::uint32_t size) {
    if (is_an_ep(bdf, nullptr)) {
        const pci_err_t result = mps_write_mps(nullptr, bdf, size);
        if (result != PCI_OK)
            return result;
    }
    if (pci::is_ari(bdf))
        return write_ari_functions(bdf, size);
    if (pci_device_is_multi_func(bdf))
        return write_plain_functions(bdf, size);
    return PCI_OK;
}

}  // namespace enable_features
