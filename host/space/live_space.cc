#include "host/space/live_space.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "host/base/address.h"
#include "host/base/log.h"
#include "host/space/libpci.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

std::string failure_text(RoutingId id, const char *what, unsigned offset, int error) {
    std::array<char, 32> place{};
    std::snprintf(place.data(), place.size(), ": %s at 0x%x: ", what, offset);
    const bool is_refused = error == EPERM || error == EACCES;
    return bdf_text(id) + place.data() + std::generic_category().message(error) +
           (is_refused ? " (is the kernel locked down?)" : "");
}

}  // namespace

// A mapped part of a function's memory.
class LiveSpace::Mapping {
public:
    // The kernel maps whole pages, so the mapping begins at a page boundary. Without an address,
    // error() has the reason.
    Mapping(const std::filesystem::path &resource, std::size_t offset, std::size_t size) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t into_page = offset % page;
        size_ = into_page + size;
        const int descriptor = open(resource.c_str(), O_RDWR | O_SYNC | O_CLOEXEC);
        error_ = errno;
        if (descriptor < 0)
            return;
        void *const start = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED, descriptor,
                                 static_cast<off_t>(offset - into_page));
        error_ = errno;
        close(descriptor);
        if (start == MAP_FAILED)
            return;
        start_ = start;
        address_ = static_cast<char *>(start) + into_page;
    }
    ~Mapping() {
        if (start_)
            munmap(start_, size_);
    }
    Mapping(const Mapping &) = delete;
    Mapping &operator=(const Mapping &) = delete;

    volatile void *address() const { return address_; }
    int error() const { return error_; }

private:
    void *start_ = nullptr;
    void *address_ = nullptr;
    std::size_t size_ = 0;
    int error_ = 0;  // an errno
};

LiveSpace::LiveSpace(unsigned domain, const std::filesystem::path &folder)
    : domain_(domain), sysfs_(domain, folder) {
    if (geteuid() != 0)
        throw LiveError("--live: only root can read this machine's configuration space");
    if (sysfs_.functions().empty())
        throw LiveError("--live: no PCI functions on this machine (" +
                        (folder / "devices").string() + ", domain " + domain_text(domain) + ")");
    libpci_ = std::make_unique<Libpci>(sysfs_);
    if (shows_headers_alone())
        throw LiveError("--live: the kernel shows no more than headers of configuration space "
                        "(CAP_SYS_ADMIN is needed)");
}

LiveSpace::~LiveSpace() = default;

bool LiveSpace::shows_headers_alone() const {
    std::array<std::uint8_t, 4> bytes{};
    const auto reads = [&](unsigned offset) {
        return std::ranges::any_of(functions(), [&](RoutingId id) {
            return libpci_->read(id, offset, bytes.data(), bytes.size()) == 0;
        });
    };
    return !reads(pci::HEADER_SIZE) && reads(0);
}

std::vector<RoutingId> LiveSpace::functions() const {
    return sysfs_.functions();
}

// Writes the title as lspci does.
std::string LiveSpace::title(RoutingId id) const {
    std::string address = domain_ == 0 ? bdf_text(id) : kernel_address(domain_, id);
    std::array<std::uint8_t, pci::HEADER_SIZE> header{};
    if (libpci_->read(id, 0, header.data(), header.size()) != 0)
        return address;
    const auto word = [&](unsigned at) { return header[at] | unsigned{header[at + 1]} << 8; };
    const bool virtual_function = sysfs_.is_virtual(id);
    std::string text =
        address + " " + libpci_->class_name(word(pci::CLASS_DEVICE)) + ": " +
        libpci_->device_name(virtual_function ? sysfs_.vendor(id) : word(pci::VENDOR_ID),
                             virtual_function ? sysfs_.device(id) : word(pci::DEVICE_ID));
    if (const unsigned revision = header[pci::REVISION_ID]) {
        std::array<char, 16> suffix{};
        std::snprintf(suffix.data(), suffix.size(), " (rev %02x)", revision);
        text += suffix.data();
    }
    return text;
}

pci_err_t LiveSpace::read(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) {
    if ((width != 1 && width != 2 && width != 4) || offset % width != 0)
        return PCI_ERR_INVALID;
    std::array<std::uint8_t, 4> bytes{};
    if (const int error = libpci_->read(id, offset, bytes.data(), width))
        return failed(id, "read", offset, error);
    value = 0;
    for (unsigned i = width; i-- > 0;)
        value = value << 8 | bytes[i];
    return PCI_OK;
}

pci_err_t LiveSpace::write(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) {
    if ((width != 1 && width != 2 && width != 4) || offset % width != 0)
        return PCI_ERR_INVALID;
    std::array<std::uint8_t, 4> bytes{};
    for (unsigned i = 0; i < width; ++i)
        bytes[i] = static_cast<std::uint8_t>(value >> 8 * i);
    const int error = libpci_->write(id, offset, bytes.data(), width);
    return error == 0 ? PCI_OK : failed(id, "write", offset, error);
}

// A stale descriptor gives ENODEV, even if another device took the address. A descriptor opened
// while the function is away gives ENOENT, even if the function is back by now. Access beyond
// config_size is the caller's error and is not counted. Each errno is logged once: one cause
// usually hits every function.
pci_err_t LiveSpace::failed(RoutingId id, const char *what, unsigned offset, int error) {
    if (error == ENODEV || error == ENOENT || !sysfs_.has(id))
        return PCI_ERR_NO_DEVICE;
    if (offset >= sysfs_.config_size(id))
        return PCI_ERR_IO;
    ++failures_;
    if (is_new("access", error))
        log_error(failure_text(id, what, offset, error));
    return PCI_ERR_IO;
}

bool LiveSpace::is_new(const char *what, int error) {
    const std::scoped_lock guard(said_lock_);
    return said_.emplace(what, error).second;
}

// An errno of 0 stands for a function with Memory Space Enable clear. The kernel reserves memory
// that a driver has claimed, and mapping it gives EINVAL.
volatile void *LiveSpace::no_memory(RoutingId id, unsigned bar, int error) {
    if (!is_new("memory", error))
        return nullptr;
    const std::string cause = error == 0 ? "Memory Space is off"
                                         : std::generic_category().message(error) +
                                               (error == EINVAL ? " (does a driver have it?)" : "");
    log_error(bdf_text(id) + ": BAR " + std::to_string(bar) + " cannot be mapped: " + cause);
    return nullptr;
}

volatile void *LiveSpace::memory(RoutingId id, unsigned bar, std::size_t offset, std::size_t size) {
    std::uint32_t command = 0;
    if (read(id, pci::COMMAND, 2, command) != PCI_OK)
        return nullptr;  // read() has logged it
    if (!(command & pci::COMMAND_MEMORY_SPACE))
        return no_memory(id, bar, 0);
    const std::filesystem::path resource = sysfs_.file(id, "resource" + std::to_string(bar));
    auto mapping = std::make_unique<Mapping>(resource, offset, size);
    if (!mapping->address())
        return no_memory(id, bar, mapping->error());
    const std::scoped_lock guard(mappings_lock_);
    return mappings_.emplace(id, std::move(mapping))->second->address();
}

bool LiveSpace::has(RoutingId id) const {
    return sysfs_.has(id);
}

bool LiveSpace::is_virtual(RoutingId id) const {
    return sysfs_.is_virtual(id);
}

std::vector<RoutingId> LiveSpace::bridges_above(RoutingId id) const {
    return sysfs_.bridges_above(id);
}

bool LiveSpace::answers(RoutingId id) {
    std::uint32_t vendor = 0;
    return read(id, pci::VENDOR_ID, 2, vendor) == PCI_OK && vendor != pci::VENDOR_ID_NONE &&
           vendor != pci::VENDOR_ID_NOT_READY;
}

bool LiveSpace::is_another(RoutingId id) const {
    return libpci_->is_another(id);
}

void LiveSpace::forget(RoutingId id) {
    libpci_->forget(id);
    const std::scoped_lock guard(mappings_lock_);
    mappings_.erase(id);
}

std::unique_ptr<ConfigImage> LiveSpace::snapshot() const {
    auto image = std::make_unique<ConfigImage>();
    for (const RoutingId id : functions()) {
        for (const std::size_t size : {sysfs_.config_size(id), std::size_t{pci::HEADER_SIZE}}) {
            std::vector<std::uint8_t> bytes(size);
            if (libpci_->read(id, 0, bytes.data(), static_cast<unsigned>(size)) != 0)
                continue;
            image->add(id, title(id), std::move(bytes));
            break;
        }
    }
    return image;
}

std::uint64_t LiveSpace::failures() const {
    return failures_;
}

const Sysfs &LiveSpace::sysfs() const {
    return sysfs_;
}

}  // namespace host
