#include "tests/live/kernel_pipe.h"

#include <libudev.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <sstream>
#include <string>

struct udev_device {
    std::string action, path, again;
};

using host::tests::kernel;

#define WRAP(type, name, parameters, value)                                                        \
    extern "C" type __wrap_##name parameters {                                                     \
        return value;                                                                              \
    }

WRAP(int, udev_monitor_get_fd, (udev_monitor *), kernel[0])
WRAP(const char *, udev_device_get_action, (udev_device * device), device->action.c_str())
WRAP(const char *, udev_device_get_devpath, (udev_device * device), device->path.c_str())
WRAP(const char *, udev_device_get_property_value, (udev_device * device, const char *),
     device->again.empty() ? nullptr : "")
WRAP(void, udev_device_unref, (udev_device * device), delete device)
extern "C" udev_device *__wrap_udev_monitor_receive_device(udev_monitor *) {
    char text[256] = "";
    if (::read(kernel[0], text, sizeof text - 1) <= 0)
        return nullptr;
    auto device = std::make_unique<udev_device>();
    std::istringstream(text) >> device->action >> device->path >> device->again;
    errno = ENOBUFS;
    return device->action == "lost" ? nullptr : device.release();
}
