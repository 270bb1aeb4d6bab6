// pci_device_find(): callers count the index up until nothing is left, with the same filter each
// time. What a filter finds is kept until something is inserted or removed, so that such a loop
// takes linear time.
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "host/exports/serve.h"
#include "platform/pci_access.h"

namespace host {

namespace {

struct Filter {
    std::uint16_t vendor;
    std::uint16_t device;
    std::uint32_t class_code;

    bool takes(const Function &function) const {
        return (vendor == ANY_VENDOR || vendor == function.vendor) &&
               (device == ANY_DEVICE || device == function.device) && takes_class(function);
    }

    std::uint64_t key() const {
        return std::uint64_t{class_code} << 32 | std::uint32_t{vendor} << 16 | device;
    }

private:
    bool takes_class(const Function &function) const {
        if (class_code == ANY_CLASS)
            return true;
        const bool any_interface = (class_code & ANY_INTERFACE) == ANY_INTERFACE;
        return (function.class_code ^ class_code) <= (any_interface ? ANY_INTERFACE : 0);
    }
};

struct Results {
    std::mutex lock;
    std::uint64_t serve_count = 0;
    std::uint64_t generation = 0;
    std::unordered_map<std::uint64_t, std::vector<bdf_t>> by_filter;
};

Results &results() {
    static Results kept;
    return kept;
}

// Under the lock. What was found on another machine, or before the last change, is dropped; and
// when somebody asks with ever new filters, everything.
void drop_outdated(Results &kept, const Machine &machine) {
    constexpr std::size_t MOST_FILTERS = 256;
    const std::uint64_t generation = machine.generation();
    if (kept.serve_count == serve_count() && kept.generation == generation &&
        kept.by_filter.size() < MOST_FILTERS)
        return;
    kept.by_filter.clear();
    kept.serve_count = serve_count();
    kept.generation = generation;
}

std::vector<bdf_t> find_all(const Machine &machine, const Filter &filter) {
    std::vector<bdf_t> found;
    for (const Function *function : machine.functions())
        if (filter.takes(*function) && machine.reachable(*function))
            found.push_back(function->bdf);
    return found;
}

bdf_t find_kept(std::uint32_t index, const Machine &machine, const Filter &filter) {
    Results &kept = results();
    const std::scoped_lock guard(kept.lock);
    drop_outdated(kept, machine);
    auto entry = kept.by_filter.find(filter.key());
    if (entry == kept.by_filter.end())
        entry = kept.by_filter.emplace(filter.key(), find_all(machine, filter)).first;
    return index < entry->second.size() ? entry->second[index] : BDF_NONE;
}

// Allocates nothing.
bdf_t find_anew(std::uint32_t index, const Machine &machine, const Filter &filter) {
    for (bdf_t id = 0; id <= BDF_ROUTING_ID; ++id) {
        const Function *function = machine.find(id);
        if (function && filter.takes(*function) && index-- == 0)
            return function->bdf;
    }
    return BDF_NONE;
}

bdf_t find(std::uint32_t index, const Filter &filter) {
    const Machine *machine = served();
    if (!machine)
        return BDF_NONE;
    try {
        return find_kept(index, *machine, filter);
    } catch (const std::bad_alloc &) {
        return find_anew(index, *machine, filter);  // slower, and needs no memory
    }
}

}  // namespace

}  // namespace host

bdf_t pci_device_find(std::uint32_t index, std::uint16_t vendor, std::uint16_t device,
                      std::uint32_t class_code) {
    return host::find(index, {vendor, device, class_code});
}
