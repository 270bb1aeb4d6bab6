// The device models that reports name: the one list that stays in memory.
#pragma once

#include <string>
#include <unordered_map>
#include <vector>

namespace fleet {

struct Device {
    std::string vendor, device;  // hexadecimal, as reports have them; empty where a function does
                                 // not answer, or its report leaves it out
    std::string name;            // the first one that a report has; may be empty
};

class Devices {
public:
    // Returns the index of the model, which the list gets if it does not have it.
    std::size_t index_of(const Device &device);

    const std::vector<Device> &all() const { return devices_; }

private:
    std::vector<Device> devices_;
    std::unordered_map<std::string, std::size_t> indexes_;
};

}  // namespace fleet
