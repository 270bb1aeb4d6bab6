#include "host/space/sysfs.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <utility>

#include "host/base/address.h"

namespace host {
namespace {

namespace fs = std::filesystem;

// Writes in one write(), as the kernel requires. Returns 0 or an errno.
int write_file(const fs::path &file, const std::string &text) {
    const int fd = open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (fd < 0)
        return errno;
    const int error =
        write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()) ? 0 : errno;
    close(fd);
    return error;
}

std::string read_line(const fs::path &file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

// Reads "0x8086"; returns 0 for any other text.
std::uint16_t read_number(const fs::path &file) {
    return static_cast<std::uint16_t>(std::strtoul(read_line(file).c_str(), nullptr, 16));
}

}  // namespace

std::optional<KernelAddress> parse_kernel_address(const std::string &text) {
    unsigned domain = 0;
    unsigned bus = 0;
    unsigned device = 0;
    unsigned function = 0;
    int length = 0;
    if (std::sscanf(text.c_str(), "%x:%2x:%2x.%1x%n", &domain, &bus, &device, &function, &length) !=
            4 ||
        static_cast<std::size_t>(length) != text.size())
        return std::nullopt;
    return KernelAddress{.domain = domain,
                         .id = pci::routing_id_of(pci::plain_bdf(bus, device, function))};
}

std::string kernel_address(unsigned domain, RoutingId id) {
    return domain_text(domain) + ":" + bdf_text(id);
}

Sysfs::Sysfs(unsigned domain, fs::path folder) : domain_(domain), folder_(std::move(folder)) {}

std::vector<RoutingId> Sysfs::functions() const {
    std::vector<RoutingId> found;
    std::error_code none;
    for (const fs::directory_entry &entry : fs::directory_iterator(devices(), none)) {
        const auto address = parse_kernel_address(entry.path().filename().string());
        if (address && address->domain == domain_)
            found.push_back(address->id);
    }
    std::ranges::sort(found);
    return found;
}

std::map<unsigned, std::size_t> Sysfs::domains() const {
    std::error_code none;
    std::map<unsigned, std::size_t> counts;
    for (const fs::directory_entry &entry : fs::directory_iterator(devices(), none))
        if (const auto address = parse_kernel_address(entry.path().filename().string()))
            ++counts[address->domain];
    return counts;
}

bool Sysfs::has(RoutingId id) const {
    std::error_code none;
    return fs::exists(directory(id), none);
}

// The link leads to ".../pci0000:00/0000:00:02.0/0000:04:00.0". Functions of other domains are left
// out: a whole domain may lie below a function of another one.
std::vector<RoutingId> Sysfs::bridges_above(RoutingId id) const {
    std::vector<RoutingId> above;
    std::error_code none;
    for (const fs::path &part : fs::read_symlink(directory(id), none)) {
        const auto address = parse_kernel_address(part.string());
        if (address && address->domain == domain_ && address->id != id)
            above.insert(above.begin(), address->id);
    }
    return above;
}

std::string Sysfs::driver(RoutingId id) const {
    std::error_code none;
    return fs::read_symlink(file(id, "driver"), none).filename().string();
}

bool Sysfs::is_virtual(RoutingId id) const {
    std::error_code none;
    return fs::exists(file(id, "physfn"), none);
}

std::uint16_t Sysfs::vendor(RoutingId id) const {
    return read_number(file(id, "vendor"));
}

std::uint16_t Sysfs::device(RoutingId id) const {
    return read_number(file(id, "device"));
}

std::size_t Sysfs::config_size(RoutingId id) const {
    std::error_code none;
    const auto size = fs::file_size(file(id, "config"), none);
    return none ? 0 : std::min<std::size_t>(size, 4096);
}

std::string Sysfs::reset_methods(RoutingId id) const {
    return read_line(file(id, "reset_method"));
}

int Sysfs::reset(RoutingId id, const std::string &method) const {
    const std::string former = reset_methods(id);
    if (const int error = write_file(file(id, "reset_method"), method))
        return error;
    const int error = write_file(file(id, "reset"), "1");
    // A line end is written even when there were no methods, because an empty write would not reach
    // the kernel.
    write_file(file(id, "reset_method"), former + '\n');
    return error;
}

fs::path Sysfs::file(RoutingId id, const std::string &name) const {
    return directory(id) / name;
}

fs::path Sysfs::directory(RoutingId id) const {
    return devices() / kernel_address(domain_, id);
}

}  // namespace host
