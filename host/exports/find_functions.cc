#include "host/exports/find_functions.h"

#include <new>

#include "host/exports/serve.h"
#include "platform/pci_access.h"

namespace host {

namespace {

bool takes_class(std::uint32_t wanted, const Function &function) {
    if (wanted == ANY_CLASS)
        return true;
    const bool any_interface = (wanted & ANY_INTERFACE) == ANY_INTERFACE;
    const std::uint32_t compared = any_interface ? ~ANY_INTERFACE : ~0U;
    return (function.class_code & compared) == (wanted & compared);
}

std::uint64_t key_of(const FunctionFilter &filter) {
    return std::uint64_t{filter.class_code} << 32 | std::uint32_t{filter.vendor} << 16 |
           filter.device;
}

std::vector<bdf_t> find_all(const Machine &machine, const FunctionFilter &filter) {
    std::vector<bdf_t> found;
    for (const Function *function : machine.functions())
        if (filter.takes(*function) && machine.reachable(*function))
            found.push_back(function->bdf);
    return found;
}

// Searches without allocating memory.
bdf_t find_anew(std::uint32_t index, const Machine &machine, const FunctionFilter &filter) {
    for (bdf_t id = 0; id <= BDF_ROUTING_ID; ++id) {
        const Function *function = machine.find(id);
        if (function && filter.takes(*function) && index-- == 0)
            return function->bdf;
    }
    return BDF_NONE;
}

}  // namespace

bool FunctionFilter::takes(const Function &function) const {
    return (vendor == ANY_VENDOR || vendor == function.vendor) &&
           (device == ANY_DEVICE || device == function.device) && takes_class(class_code, function);
}

bdf_t FoundFunctions::find(std::uint32_t index, const Machine &machine,
                           const FunctionFilter &filter) {
    const std::scoped_lock guard(lock_);
    drop_outdated(machine);
    auto entry = by_filter_.find(key_of(filter));
    if (entry == by_filter_.end())
        entry = by_filter_.emplace(key_of(filter), find_all(machine, filter)).first;
    return index < entry->second.size() ? entry->second[index] : BDF_NONE;
}

// The caller holds the lock. Drops results that are older than the machine's last change, and all
// of them when there are too many filters.
void FoundFunctions::drop_outdated(const Machine &machine) {
    constexpr std::size_t MOST_FILTERS = 256;
    const std::uint64_t generation = machine.generation();
    if (generation_ == generation && by_filter_.size() < MOST_FILTERS)
        return;
    by_filter_.clear();
    generation_ = generation;
}

}  // namespace host

bdf_t pci_device_find(std::uint32_t index, std::uint16_t vendor, std::uint16_t device,
                      std::uint32_t class_code) {
    host::Served *served = host::served();
    if (!served)
        return BDF_NONE;
    const host::FunctionFilter filter{vendor, device, class_code};
    try {
        return served->found_functions.find(index, served->machine, filter);
    } catch (const std::bad_alloc &) {
        // This is slower but needs no memory: no exception may cross the C interface.
        return host::find_anew(index, served->machine, filter);
    }
}
