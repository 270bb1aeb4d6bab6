// The configuration space of the machine that this process runs on, through the kernel's files.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "host/space/config_files.h"
#include "host/space/config_image.h"
#include "host/space/config_space.h"
#include "host/space/device_names.h"
#include "host/space/kept_registers.h"
#include "host/space/live_error.h"
#include "host/space/live_functions.h"
#include "host/space/sysfs.h"

namespace host {

class LiveSpace final : public ConfigSpace, public LiveFunctions {
public:
    using Mode = ConfigFiles::Mode;

    // Serves the functions of one domain. Throws LiveError without root, when the operating system
    // shows headers alone, and on a machine without PCI.
    LiveSpace(unsigned domain, Mode mode, const std::filesystem::path &folder = PCI_BUS);
    ~LiveSpace() override;
    LiveSpace(const LiveSpace &) = delete;
    LiveSpace &operator=(const LiveSpace &) = delete;

    std::vector<RoutingId> functions() const override;
    std::string title(RoutingId id) const override;
    // PCI_ERR_NO_DEVICE for a function that is gone, PCI_ERR_IO for any other failure of the
    // operating system; each reason is logged as an error once.
    pci_err_t read(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) override;
    pci_err_t write(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) override;
    pci_err_t recall(RoutingId id, unsigned offset, unsigned width, Changes changes,
                     std::uint32_t &value) override;
    bool keeps_registers() const override { return true; }
    void look_again() override;
    void rest() override;

    bool has_memory() const override { return true; }
    // Valid until forget(). Null also while Command, Memory Space Enable, is clear. Each reason is
    // logged as an error once.
    volatile void *memory(RoutingId id, unsigned bar, std::size_t offset,
                          std::size_t size) override;

    bool has(RoutingId id) const override;
    bool is_virtual(RoutingId id) const override;
    std::vector<RoutingId> bridges_above(RoutingId id) const override;
    bool answers(RoutingId id) override;
    bool is_another(RoutingId id) const override;
    void forget(RoutingId id) override;

    // Copies all configuration space that can be read now; of a function that does not give more,
    // the header.
    std::unique_ptr<ConfigImage> snapshot() const;

    // Returns how many accesses ended with PCI_ERR_IO so far.
    std::uint64_t failures() const;

    // Returns the accesses to this machine so far.
    Accesses accesses() const;

    const Sysfs &sysfs() const;

private:
    class Mapping;

    bool shows_headers_alone() const;
    std::string title_of(RoutingId id, std::uint32_t ids, std::uint32_t class_revision) const;
    int read_bytes(RoutingId id, unsigned offset, std::span<std::uint8_t> bytes) const;
    int read_register(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) const;
    std::optional<std::uint32_t> find_kept(RoutingId id, unsigned offset, unsigned width,
                                           Changes changes) const;
    pci_err_t failed(RoutingId id, const char *what, unsigned offset, int error);
    volatile void *no_memory(RoutingId id, unsigned bar, int error);
    bool is_new(const char *what, int error);

    unsigned domain_;
    Sysfs sysfs_;
    mutable DeviceNames names_;
    mutable std::mutex access_lock_;  // guards the two below
    mutable ConfigFiles files_;
    mutable KeptRegisters kept_;
    std::atomic<std::uint64_t> failures_ = 0;
    std::mutex said_lock_;
    // The failures that have been reported: what was tried, and the errno.
    std::set<std::pair<std::string, int>> said_;
    std::mutex mappings_lock_;
    std::multimap<RoutingId, std::unique_ptr<Mapping>> mappings_;
};

}  // namespace host
