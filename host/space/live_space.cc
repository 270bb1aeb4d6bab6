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

bool is_access(unsigned offset, unsigned width) {
    return (width == 1 || width == 2 || width == 4) && offset % width == 0;
}

std::uint32_t load(std::span<const std::uint8_t> bytes, unsigned width) {
    std::uint32_t value = 0;
    for (unsigned i = width; i-- > 0;)
        value = value << 8 | bytes[i];
    return value;
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

LiveSpace::LiveSpace(unsigned domain, Mode mode, const std::filesystem::path &folder)
    : domain_(domain), sysfs_(domain, folder), files_(sysfs_, mode) {
    if (geteuid() != 0)
        throw LiveError("--live: only root can read this machine's configuration space");
    if (sysfs_.functions().empty())
        throw LiveError("--live: no PCI functions on this machine (" +
                        (folder / "devices").string() + ", domain " + domain_text(domain) + ")");
    if (shows_headers_alone())
        throw LiveError("--live: the kernel shows no more than headers of configuration space "
                        "(CAP_SYS_ADMIN is needed)");
}

LiveSpace::~LiveSpace() = default;

bool LiveSpace::shows_headers_alone() const {
    std::array<std::uint8_t, 4> bytes{};
    const auto reads = [&](unsigned offset) {
        return std::ranges::any_of(
            functions(), [&](RoutingId id) { return read_bytes(id, offset, bytes) == 0; });
    };
    return !reads(pci::HEADER_SIZE) && reads(0);
}

std::vector<RoutingId> LiveSpace::functions() const {
    return sysfs_.functions();
}

std::string LiveSpace::title(RoutingId id) const {
    std::uint32_t ids = 0;
    std::uint32_t class_revision = 0;
    const auto constant = [&](unsigned offset, std::uint32_t &value) {
        const auto kept = find_kept(id, offset, 4, Changes::NEVER);
        value = kept.value_or(0);
        return kept || read_register(id, offset, 4, value) == 0;
    };
    if (constant(pci::IDS, ids) && constant(pci::CLASS_REVISION, class_revision))
        return title_of(id, ids, class_revision);
    return domain_ == 0 ? bdf_text(id) : kernel_address(domain_, id);
}

// Writes the title as lspci does.
std::string LiveSpace::title_of(RoutingId id, std::uint32_t ids,
                                std::uint32_t class_revision) const {
    const bool virtual_function = sysfs_.is_virtual(id);
    const unsigned vendor = virtual_function ? sysfs_.vendor(id) : pci::get(ids, pci::IDS_VENDOR);
    const unsigned device = virtual_function ? sysfs_.device(id) : pci::get(ids, pci::IDS_DEVICE);
    std::string text = (domain_ == 0 ? bdf_text(id) : kernel_address(domain_, id)) + " " +
                       names_.class_name(class_revision >> 16) + ": " +
                       names_.device_name(vendor, device);
    if (const unsigned revision = pci::get(class_revision, pci::CLASS_REVISION_ID)) {
        std::array<char, 16> suffix{};
        std::snprintf(suffix.data(), suffix.size(), " (rev %02x)", revision);
        text += suffix.data();
    }
    return text;
}

int LiveSpace::read_bytes(RoutingId id, unsigned offset, std::span<std::uint8_t> bytes) const {
    const std::scoped_lock guard(access_lock_);
    return files_.read(id, offset, bytes.data(), static_cast<unsigned>(bytes.size()));
}

// All ones are not kept, because they may stand for a function that does not answer.
int LiveSpace::read_register(RoutingId id, unsigned offset, unsigned width,
                             std::uint32_t &value) const {
    std::array<std::uint8_t, 4> bytes{};
    const std::scoped_lock guard(access_lock_);
    if (const int error = files_.read(id, offset, bytes.data(), width))
        return error;
    value = load(bytes, width);
    if (std::ranges::count(std::span(bytes).first(width), 0xFF) != width)
        kept_.keep(id, offset, width, value);
    return 0;
}

pci_err_t LiveSpace::read(RoutingId id, unsigned offset, unsigned width, std::uint32_t &value) {
    if (!is_access(offset, width))
        return PCI_ERR_INVALID;
    const int error = read_register(id, offset, width, value);
    return error == 0 ? PCI_OK : failed(id, "read", offset, error);
}

std::optional<std::uint32_t> LiveSpace::find_kept(RoutingId id, unsigned offset, unsigned width,
                                                  Changes changes) const {
    const std::scoped_lock guard(access_lock_);
    return kept_.find(id, offset, width, changes);
}

pci_err_t LiveSpace::recall(RoutingId id, unsigned offset, unsigned width, Changes changes,
                            std::uint32_t &value) {
    if (!is_access(offset, width))
        return PCI_ERR_INVALID;
    const auto kept = find_kept(id, offset, width, changes);
    if (!kept)
        return read(id, offset, width, value);
    value = *kept;
    return PCI_OK;
}

void LiveSpace::look_again() {
    const std::scoped_lock guard(access_lock_);
    kept_.drop_all(true);
}

void LiveSpace::rest() {
    const std::scoped_lock guard(access_lock_);
    kept_.drop_all(false);
}

pci_err_t LiveSpace::write(RoutingId id, unsigned offset, unsigned width, std::uint32_t value) {
    if (!is_access(offset, width))
        return PCI_ERR_INVALID;
    std::array<std::uint8_t, 4> bytes{};
    for (unsigned i = 0; i < width; ++i)
        bytes[i] = static_cast<std::uint8_t>(value >> 8 * i);
    int error = 0;
    {
        const std::scoped_lock guard(access_lock_);
        kept_.drop(id, offset, width);
        error = files_.write(id, offset, bytes.data(), width);
    }
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
    const std::scoped_lock guard(access_lock_);
    return files_.is_another(id);
}

void LiveSpace::forget(RoutingId id) {
    const std::scoped_lock guard(access_lock_, mappings_lock_);
    files_.forget(id);
    kept_.forget(id);
    mappings_.erase(id);
}

std::unique_ptr<ConfigImage> LiveSpace::snapshot() const {
    auto image = std::make_unique<ConfigImage>();
    constexpr std::size_t HEADER = pci::HEADER_SIZE;
    for (const RoutingId id : functions()) {
        for (const std::size_t size : {std::max(sysfs_.config_size(id), HEADER), HEADER}) {
            std::vector<std::uint8_t> bytes(size);
            if (read_bytes(id, 0, bytes) != 0)
                continue;
            const std::uint32_t ids = load(bytes, 4);
            const std::uint32_t revision = load(std::span(bytes).subspan(pci::CLASS_REVISION), 4);
            image->add(id, title_of(id, ids, revision), std::move(bytes));
            break;
        }
    }
    return image;
}

std::uint64_t LiveSpace::failures() const {
    return failures_;
}

Accesses LiveSpace::accesses() const {
    const std::scoped_lock guard(access_lock_);
    return files_.accesses();
}

const Sysfs &LiveSpace::sysfs() const {
    return sysfs_;
}

}  // namespace host
