#include "tools/fleet/devices.h"

namespace fleet {

std::size_t Devices::index_of(const Device &device) {
    const auto [found, is_new] =
        indexes_.try_emplace(device.vendor + ":" + device.device, devices_.size());
    if (is_new)
        devices_.push_back(device);
    else if (Device &known = devices_[found->second]; known.name.empty())
        known.name = device.name;
    return found->second;
}

}  // namespace fleet
