// Configuration space of a whole machine in memory. Writes obey per-register masks as hardware
// does: next = ((old & ~rw) | (in & rw)) & ~(in & w1c), byte by byte; what no rule names is read
// only.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "host/space/config_space.h"
#include "host/space/register_rules.h"

namespace host {

// One access, as a filter sees it: before it happens, and free to change its outcome.
struct ImageAccess {
    RoutingId id;
    unsigned offset;
    unsigned width;
    bool is_write;
    std::uint32_t value;  // write: the value to be written; read: the value about to be returned
};

// Called under the image's lock for every access to bytes that are there of a present function, and
// must not use the image itself. Returns 0 to let the access
// go on with `value` as the filter left it, or the error code that the access ends with.
using AccessFilter = std::function<pci_err_t(ImageAccess &)>;

class ConfigImage : public ConfigSpace {
public:
    ConfigImage();

    // Adds a function with its bytes (64, 256 or 4096; shorter is allowed), whose writable
    // registers are found from its own header and capabilities. Throws std::invalid_argument for a
    // routing ID that is there already and for more than 4096 bytes.
    void add(RoutingId id, std::string title, std::vector<std::uint8_t> bytes);

    std::vector<RoutingId> functions() const override;
    std::string title(RoutingId id) const override;
    pci_err_t read(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) override;
    pci_err_t write(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) override;

    // Of a function that was never added, what follows tells nothing and changes nothing.
    //
    // A function that is not present answers nothing (PCI_ERR_NO_DEVICE) and keeps its bytes.
    void set_present(RoutingId id, bool present);
    bool present(RoutingId id) const;

    // Returns the function's modelled registers to their reset values, as after power-on.
    void reset(RoutingId id);

    // The bytes as they stand now, for the dump writer.
    std::vector<std::uint8_t> bytes(RoutingId id) const;

    // The one way to observe accesses and to inject faults; an empty function removes it.
    void set_filter(AccessFilter filter);

private:
    struct Entry {
        std::string title;
        std::vector<std::uint8_t> bytes;
        std::vector<RegisterRule> rules;
        bool present = true;
    };

    // Both called with the lock held.
    Entry *find(RoutingId id) const;
    pci_err_t check(const Entry *entry, unsigned offset, unsigned width) const;

    mutable std::mutex lock_;
    std::vector<std::unique_ptr<Entry>> entries_;  // by routing ID
    AccessFilter filter_;
};

}  // namespace host
