// Keeps the results of pci_device_find(). Callers count its index up until nothing is left, with
// the same filter each time, so a filter's result is kept until a function is inserted or removed:
// such a loop then takes linear time.
#pragma once

#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "host/machine/machine.h"
#include "platform/types.h"

namespace host {

struct FunctionFilter {
    std::uint16_t vendor;      // or ANY_VENDOR
    std::uint16_t device;      // or ANY_DEVICE
    std::uint32_t class_code;  // or ANY_CLASS; with ANY_INTERFACE, of any programming interface

    bool takes(const Function &function) const;
};

class FoundFunctions {
public:
    // Returns the function of `machine` with that index among those that the filter takes,
    // ascending; BDF_NONE beyond the last. Safe on any thread. Throws std::bad_alloc.
    bdf_t find(std::uint32_t index, const Machine &machine, const FunctionFilter &filter);

private:
    void drop_outdated(const Machine &machine);

    std::mutex lock_;
    std::uint64_t generation_ = 0;  // of the machine, when the results were found
    std::unordered_map<std::uint64_t, std::vector<bdf_t>> by_filter_;
};

}  // namespace host
