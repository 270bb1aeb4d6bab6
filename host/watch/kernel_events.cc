// Events come from the kernel and not from udevd, because the kernel sends them early in the boot
// too and they need no daemon.
#include "host/watch/kernel_events.h"

#include <libudev.h>

#include <cerrno>
#include <string_view>
#include <utility>

#include "host/space/live_error.h"

namespace host {
namespace {

constexpr int RECEIVE_BUFFER = 16 << 20;  // bytes; as large as udevd's

struct ReleaseDevice {
    void operator()(udev_device *device) const { udev_device_unref(device); }
};
using Device = std::unique_ptr<udev_device, ReleaseDevice>;

// Synthetic uevents (udevadm trigger) announce devices that were there before; they carry
// SYNTH_UUID. Skip them.
bool is_announced_again(udev_device *device) {
    return udev_device_get_property_value(device, "SYNTH_UUID") != nullptr;
}

// In "/devices/pci0000:00/0000:00:02.0/0000:04:00.0" the last part is the function. Functions of
// other domains are left out: a whole domain may lie below a function of another one.
std::optional<KernelEvent> event_of(udev_device *device, unsigned domain) {
    const char *const action = udev_device_get_action(device);
    const char *const path = udev_device_get_devpath(device);
    if (!action || !path || is_announced_again(device))
        return std::nullopt;
    const bool added = std::string_view(action) == "add";
    if (!added && std::string_view(action) != "remove")
        return std::nullopt;
    const std::filesystem::path parts(path);
    const auto function = parse_kernel_address(parts.filename().string());
    if (!function || function->domain != domain)
        return std::nullopt;
    std::vector<RoutingId> bridges;
    for (const std::filesystem::path &part : parts.parent_path()) {
        const auto address = parse_kernel_address(part.string());
        if (address && address->domain == domain)
            bridges.insert(bridges.begin(), address->id);
    }
    return KernelEvent{.added = added, .id = function->id, .bridges = std::move(bridges)};
}

}  // namespace

void KernelEvents::Release::operator()(udev *context) const {
    udev_unref(context);
}

void KernelEvents::Release::operator()(udev_monitor *monitor) const {
    udev_monitor_unref(monitor);
}

KernelEvents::KernelEvents(unsigned domain) : domain_(domain), context_(udev_new()) {
    if (context_)
        monitor_.reset(udev_monitor_new_from_netlink(context_.get(), "kernel"));
    if (!monitor_ ||
        udev_monitor_filter_add_match_subsystem_devtype(monitor_.get(), "pci", nullptr) < 0)
        throw LiveError("--watch: the kernel's events cannot be received");
    // Without the privilege to exceed the system's limit, the buffer has the size that the system
    // allows.
    udev_monitor_set_receive_buffer_size(monitor_.get(), RECEIVE_BUFFER);
    if (udev_monitor_enable_receiving(monitor_.get()) < 0)
        throw LiveError("--watch: the kernel's events cannot be received");
}

int KernelEvents::descriptor() const {
    return udev_monitor_get_fd(monitor_.get());
}

std::optional<KernelEvent> KernelEvents::next() {
    for (;;) {
        errno = 0;
        const Device device(udev_monitor_receive_device(monitor_.get()));
        if (!device) {
            lost_ |= errno == ENOBUFS;
            return std::nullopt;
        }
        if (auto event = event_of(device.get(), domain_))
            return event;
    }
}

bool KernelEvents::lost() {
    return std::exchange(lost_, false);
}

}  // namespace host
