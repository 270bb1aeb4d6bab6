// The names of the PCI ID database, through libpci.
#pragma once

#include <memory>
#include <mutex>
#include <string>

struct pci_access;

namespace host {

// Calls libpci one call at a time, because it is not thread-safe.
class DeviceNames {
public:
    DeviceNames();

    // Return names of the PCI ID database, or numbers.
    std::string class_name(unsigned class_code);
    std::string device_name(unsigned vendor, unsigned device);

private:
    struct Close {
        void operator()(pci_access *access) const;
    };

    std::string look_up(int what, int first, int second);

    std::mutex lock_;
    std::unique_ptr<pci_access, Close> access_;
};

}  // namespace host
