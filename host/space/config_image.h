// The configuration space of a whole machine in memory. Writes obey masks per register as hardware
// does: next = ((old & ~rw) | (in & rw)) & ~(in & w1c). Bytes without a rule are read only.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <set>

#include "host/base/by_routing_id.h"
#include "host/space/config_space.h"
#include "host/space/register_rules.h"

namespace host {

// An access as a filter sees it, before it happens; the filter may change its outcome.
struct ImageAccess {
    RoutingId id;
    unsigned offset;
    unsigned width;
    bool is_write;
    // Write: the value to be written; read: the value about to be returned, of which only the
    // `width` low bytes are.
    std::uint32_t value;
};

// Called under the image's lock for every access to a present function's bytes, so it must not use
// the image itself. Returns 0 to let the access go on with `value` as the filter left it, or the
// error code that the access ends with.
using AccessFilter = std::function<pci_err_t(ImageAccess &)>;

class ConfigImage : public ConfigSpace {
public:
    // Adds a function with its bytes (64, 256 or 4096; shorter is allowed). Its writable registers
    // are derived from its own header and capabilities. Throws std::invalid_argument for a routing
    // ID that is already taken and for more than 4096 bytes.
    void add(RoutingId id, std::string title, std::vector<std::uint8_t> bytes);

    std::vector<RoutingId> functions() const override;
    std::string title(RoutingId id) const override;
    pci_err_t read(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) override;
    pci_err_t write(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) override;

    // For a function that was never added, the functions below return nothing and change nothing.
    //
    // A function that is not present fails every access with PCI_ERR_NO_DEVICE and keeps its bytes.
    void set_present(RoutingId id, bool present);
    bool present(RoutingId id) const;

    // Returns the function's modelled registers to their reset values, as after power-on.
    void reset(RoutingId id);

    // Returns the bytes as they are now, for the dump writer.
    std::vector<std::uint8_t> bytes(RoutingId id) const;

    // Sets the one filter, which observes accesses and injects faults; an empty function removes
    // it.
    void set_filter(AccessFilter filter);

private:
    using Rules = std::vector<RegisterRule>;

    struct Entry {
        bool present = true;
        std::vector<std::uint8_t> bytes;
        const Rules *rules = nullptr;
        std::string title;
    };

    // The caller holds the lock.
    Entry *find(RoutingId id) const;
    pci_err_t check(const Entry *entry, unsigned offset, unsigned width) const;

    mutable std::mutex lock_;
    // Functions of one kind share their rules, which then stay in the processor's cache.
    std::set<Rules> rules_;
    ByRoutingId<std::unique_ptr<Entry>> entries_;
    AccessFilter filter_;
};

}  // namespace host
