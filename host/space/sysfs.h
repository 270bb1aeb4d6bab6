// What the kernel's file tree tells about PCI functions, and the resets that it does.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/space/config_space.h"

namespace host {

constexpr const char *PCI_BUS = "/sys/bus/pci";

// The functions of one domain below PCI_BUS, or below a folder that is made like it. What cannot be
// read counts as not there.
class Sysfs {
public:
    explicit Sysfs(unsigned domain, std::filesystem::path folder = PCI_BUS);

    unsigned domain() const { return domain_; }
    const std::filesystem::path &folder() const { return folder_; }

    // Ascending; empty on a machine without PCI.
    std::vector<RoutingId> functions() const;

    std::size_t other_domains() const;  // functions that this machine has in others

    bool has(RoutingId id) const;

    // Differs whenever the kernel has made the function anew; 0 when there is none.
    std::uint64_t identity(RoutingId id) const;

    // The bridges above a function, the nearest first, as the kernel knows them.
    std::vector<RoutingId> bridges_above(RoutingId id) const;

    // The name of the driver that is bound to a function; empty: none.
    std::string driver(RoutingId id) const;

    // Whether it is a virtual function of an SR-IOV device.
    bool is_virtual(RoutingId id) const;

    // What the kernel knows the function as: a virtual one's registers do not tell. 0 when there is
    // none.
    std::uint16_t vendor(RoutingId id) const;
    std::uint16_t device(RoutingId id) const;

    // Bytes of its configuration space: 256 or 4096, 0 when there is no such function.
    std::size_t config_size(RoutingId id) const;

    // Resets that the kernel has for the function, as it writes them: "flr pm bus". Empty: none.
    std::string reset_methods(RoutingId id) const;

    // Resets by the kernel, with the method that is named: "flr", "bus". The function's former
    // methods are set again. 0 or an errno.
    int reset(RoutingId id, const std::string &method) const;

    // "/sys/bus/pci/devices/0000:04:00.0/NAME"
    std::filesystem::path file(RoutingId id, const std::string &name) const;

private:
    std::filesystem::path devices() const { return folder_ / "devices"; }
    std::filesystem::path directory(RoutingId id) const;

    unsigned domain_;
    std::filesystem::path folder_;
};

// A function's address in the kernel's form "0000:04:00.0"; nothing for any other text.
struct KernelAddress {
    unsigned domain;
    RoutingId id;
};
std::optional<KernelAddress> parse_kernel_address(const std::string &text);
std::string kernel_address(unsigned domain, RoutingId id);

}  // namespace host
