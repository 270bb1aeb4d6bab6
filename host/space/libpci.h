// Accesses configuration space through libpci.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "host/space/sysfs.h"

struct pci_access;
struct pci_dev;

namespace host {

// Calls libpci one call at a time, because it is not thread-safe. What it opens for a function
// stays open until forget().
class Libpci {
public:
    // `sysfs` must outlive it. Throws LiveError when libpci finds no configuration space.
    explicit Libpci(const Sysfs &sysfs);
    ~Libpci();
    Libpci(const Libpci &) = delete;
    Libpci &operator=(const Libpci &) = delete;

    // Return 0 or an errno, which is EIO for an access that was cut short, and ENODEV when
    // is_another() is true. Nothing is opened for writing before the first write.
    int read(RoutingId id, unsigned offset, std::uint8_t *bytes, unsigned count);
    int write(RoutingId id, unsigned offset, std::uint8_t *bytes, unsigned count);

    void forget(RoutingId id);

    // Returns true when the kernel has made the function anew since the first access after
    // forget().
    bool is_another(RoutingId id);

    // Return names of the PCI ID database, or numbers.
    std::string class_name(unsigned class_code);
    std::string device_name(unsigned vendor, unsigned device);

private:
    struct Close {
        void operator()(pci_access *access) const;
    };
    struct Opened {
        pci_dev *device = nullptr;
        std::uint64_t identity = 0;  // before the first access
    };

    template <typename Call>
    int access(RoutingId id, Call call);
    const Opened &find(RoutingId id);
    std::string look_up(int what, int first, int second);

    const Sysfs &sysfs_;
    std::mutex lock_;
    std::unique_ptr<pci_access, Close> access_;
    std::map<RoutingId, Opened> devices_;
};

}  // namespace host
