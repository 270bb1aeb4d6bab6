#include "host/watch/resets.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <thread>

#include "host/base/address.h"
#include "host/base/log.h"
#include "host/watch/signals.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

// Returns false when the function does not come back in time, is gone, or the server is told to
// end.
bool wait_for(LiveSpace &space, RoutingId id, Clock::time_point latest) {
    constexpr std::chrono::milliseconds STEP{10};
    while (!space.answers(id)) {
        if (Clock::now() >= latest || !space.sysfs().has(id) || termination_pending()) {
            log_error(bdf_text(id) + ": does not answer after the reset");
            return false;
        }
        std::this_thread::sleep_for(STEP);
    }
    return true;
}

std::string offer_text(const std::string &methods) {
    return methods.empty() ? "the kernel names no reset for it" : "the kernel offers: " + methods;
}

pci_err_t reset(LiveSpace &space, RoutingId id, const char *method) {
    const int error = space.sysfs().reset(id, method);
    if (error == 0)
        return PCI_OK;
    const bool is_there = space.sysfs().has(id);
    log_error(bdf_text(id) + ": cannot be reset (" + method +
              "): " + std::generic_category().message(error) +
              (is_there ? "; " + offer_text(space.sysfs().reset_methods(id)) : ""));
    if (!is_there)
        return PCI_ERR_NO_DEVICE;
    // The kernel gives one of these for a method that the function does not have.
    return error == EINVAL || error == ENOTTY || error == ENOENT ? PCI_ERR_NOT_SUPPORTED
                                                                 : PCI_ERR_IO;
}

}  // namespace

pci_err_t reset_function(LiveSpace &space, RoutingId id) {
    if (const pci_err_t error = reset(space, id, "flr"))
        return error;
    return wait_for(space, id, Clock::now() + LONGEST_RESET) ? PCI_OK : PCI_ERR_IO;
}

pci_err_t reset_bus(LiveSpace &space, RoutingId id, std::span<const Function *const> below) {
    if (const pci_err_t error = reset(space, id, "bus"))
        return error;
    const Clock::time_point latest = Clock::now() + LONGEST_RESET;
    bool all = true;
    for (const Function *function : below)
        all &= wait_for(space, function->id(), latest);
    return all ? PCI_OK : PCI_ERR_IO;
}

}  // namespace host
