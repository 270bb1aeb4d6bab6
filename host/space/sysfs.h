// Reads what the kernel's file tree tells about PCI functions, and resets functions through it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/space/config_space.h"

namespace host {

constexpr const char *PCI_BUS = "/sys/bus/pci";

// The functions of one domain below PCI_BUS, or below a folder that is made like it. A file that
// cannot be read counts as missing.
class Sysfs {
public:
    explicit Sysfs(unsigned domain, std::filesystem::path folder = PCI_BUS);

    unsigned domain() const { return domain_; }
    const std::filesystem::path &folder() const { return folder_; }

    // Returns them in ascending order; empty on a machine without PCI.
    std::vector<RoutingId> functions() const;

    // Returns the number of functions in each domain, this one among them.
    std::map<unsigned, std::size_t> domains() const;

    bool has(RoutingId id) const;

    // Returns the bridges above a function, the nearest first, as the kernel knows them.
    std::vector<RoutingId> bridges_above(RoutingId id) const;

    // Returns the name of the driver that is bound to a function; empty: none.
    std::string driver(RoutingId id) const;

    // Returns true for a virtual function of an SR-IOV device.
    bool is_virtual(RoutingId id) const;

    // Return the IDs that the kernel knows the function by, because a virtual function's own
    // registers hold none. 0 when there is no such function.
    std::uint16_t vendor(RoutingId id) const;
    std::uint16_t device(RoutingId id) const;

    // Returns the bytes of its configuration space: 256 or 4096, 0 when there is no such function.
    std::size_t config_size(RoutingId id) const;

    // Returns the resets that the kernel has for the function, as it writes them: "flr pm bus".
    // Empty: none.
    std::string reset_methods(RoutingId id) const;

    // Lets the kernel reset the function with the given method, "flr" or "bus", then restores the
    // function's former methods. Returns 0 or an errno.
    int reset(RoutingId id, const std::string &method) const;

    // Returns "/sys/bus/pci/devices/0000:04:00.0/NAME".
    std::filesystem::path file(RoutingId id, const std::string &name) const;

private:
    std::filesystem::path devices() const { return folder_ / "devices"; }
    std::filesystem::path directory(RoutingId id) const;

    unsigned domain_;
    std::filesystem::path folder_;
};

// A function's address in the kernel's form "0000:04:00.0"; nullopt for any other text.
struct KernelAddress {
    unsigned domain;
    RoutingId id;
};
std::optional<KernelAddress> parse_kernel_address(const std::string &text);
std::string kernel_address(unsigned domain, RoutingId id);

}  // namespace host
