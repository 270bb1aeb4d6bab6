// Events about the functions that the kernel adds and removes.
#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "host/space/sysfs.h"

struct udev;
struct udev_monitor;

namespace host {

struct KernelEvent {
    bool added;  // otherwise removed
    RoutingId id;
    std::vector<RoutingId> bridges;  // above the function, the nearest first
};

// Receives the kernel's events about the functions of one domain, from now on. Throws LiveError.
class KernelEvents {
public:
    explicit KernelEvents(unsigned domain);

    int descriptor() const;  // becomes readable

    // Returns the next waiting event; nullopt when none waits. Events of other kinds are passed
    // over.
    std::optional<KernelEvent> next();

    // Returns true when the kernel had to drop events since the last call.
    bool lost();

private:
    struct Release {
        void operator()(udev *context) const;
        void operator()(udev_monitor *monitor) const;
    };

    unsigned domain_;
    bool lost_ = false;
    std::unique_ptr<udev, Release> context_;
    std::unique_ptr<udev_monitor, Release> monitor_;
};

}  // namespace host
