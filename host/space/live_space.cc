// libpci ends the process through its error callback when it cannot go on. Here that callback jumps
// back to where the library was entered; only C frames lie between.
#include "host/space/live_space.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <map>
#include <mutex>
#include <system_error>

extern "C" {
#include <pci/pci.h>
}

#include "host/base/address.h"
#include "host/base/log.h"
#include "platform/pci_regs.h"

namespace host {
namespace {

// Where the error callback goes back to, and why. Under the library's lock.
std::jmp_buf *way_out = nullptr;
std::array<char, 256> reason;

// As libpci declares it: the standard's [[noreturn]] is no part of the type.
__attribute__((noreturn, format(printf, 1, 2))) void give_up(char *format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(reason.data(), reason.size(), format, args);
    va_end(args);
    std::longjmp(*way_out, 1);  // NOLINT(cert-err52-cpp): an exception cannot pass C frames
}

// What it warns of comes back as the result of the access as well.
[[gnu::format(printf, 1, 2)]] void ignore(char *, ...) {}

// Runs calls of the library; false when it gave up. Nothing with a destructor may live in `calls`.
template <typename Calls>
bool enter(Calls calls) {
    std::jmp_buf here;
    way_out = &here;
    if (setjmp(here) != 0)  // NOLINT(cert-err52-cpp)
        return false;
    calls();
    return true;
}

std::string failure_text(RoutingId id, const char *what, unsigned offset, int error) {
    std::array<char, 32> place{};
    std::snprintf(place.data(), place.size(), ": %s at 0x%x: ", what, offset);
    const bool is_refused = error == EPERM || error == EACCES;
    return bdf_text(id) + place.data() + std::generic_category().message(error) +
           (is_refused ? " (is the kernel locked down?)" : "");
}

struct CloseLibrary {
    void operator()(pci_access *access) const {
        enter([access] { pci_cleanup(access); });
    }
};

}  // namespace

// Every call of libpci, one at a time: it knows no threads.
class LiveSpace::Library {
public:
    explicit Library(const Sysfs &sysfs) : sysfs_(sysfs) {
        pci_access *opened = pci_alloc();
        opened->error = give_up;
        opened->warning = ignore;
        opened->debug = ignore;
        opened->method = PCI_ACCESS_SYS_BUS_PCI;
        // Not `writeable`: then it would open for writing also what is only read.
        if (!enter([opened] { pci_init(opened); }))
            throw LiveError(std::string("this machine's configuration space: ") + reason.data());
        access_.reset(opened);
    }

    ~Library() {
        for (const auto &[id, opened] : devices_)
            release(opened.device);
    }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;

    // Both: 0 or an errno.
    int read(RoutingId id, unsigned offset, std::uint8_t *bytes, unsigned count) {
        return access(id, [=](pci_dev *device) {
            return pci_read_block(device, static_cast<int>(offset), bytes, static_cast<int>(count));
        });
    }

    int write(RoutingId id, unsigned offset, std::uint8_t *bytes, unsigned count) {
        return access(id, [=](pci_dev *device) {
            return pci_write_block(device, static_cast<int>(offset), bytes,
                                   static_cast<int>(count));
        });
    }

    void forget(RoutingId id) {
        const std::scoped_lock guard(lock_);
        const auto found = devices_.find(id);
        if (found == devices_.end())
            return;
        release(found->second.device);
        devices_.erase(found);
    }

    bool is_another(RoutingId id) {
        const std::scoped_lock guard(lock_);
        const auto found = devices_.find(id);
        return found != devices_.end() && found->second.identity != sysfs_.identity(id);
    }

    std::string class_name(unsigned class_code) {
        return look_up(PCI_LOOKUP_CLASS, static_cast<int>(class_code), 0);
    }

    std::string device_name(unsigned vendor, unsigned device) {
        return look_up(PCI_LOOKUP_VENDOR | PCI_LOOKUP_DEVICE, static_cast<int>(vendor),
                       static_cast<int>(device));
    }

private:
    struct Opened {
        pci_dev *device = nullptr;
        std::uint64_t identity = 0;  // before the first access
    };

    // libpci says that an access failed, and leaves the reason in errno; that something was cut
    // short is no error to the system.
    template <typename Call>
    int access(RoutingId id, Call call) {
        const std::scoped_lock guard(lock_);
        pci_dev *const device = find(id);
        if (device == nullptr)
            return ENOMEM;
        volatile bool done = false;
        errno = 0;
        enter([&] { done = call(device) != 0; });
        if (done)
            return 0;
        return errno != 0 ? errno : EIO;
    }

    // Null without memory.
    pci_dev *find(RoutingId id) {
        Opened &opened = devices_[id];
        if (opened.device == nullptr) {
            opened.identity = sysfs_.identity(id);
            enter([&] {
                const auto number = [](unsigned part) { return static_cast<int>(part); };
                opened.device =
                    pci_get_dev(access_.get(), number(sysfs_.domain()), number(pci::bus_of(id)),
                                number(pci::device_of(id)), number(pci::function_of(id)));
            });
        }
        return opened.device;
    }

    static void release(pci_dev *device) {
        if (device != nullptr)
            enter([device] { pci_free_dev(device); });
    }

    // Not in udev's database, which has the same names: where there is none, libpci 3.9 loses
    // memory with every look-up.
    std::string look_up(int what, int first, int second) {
        const std::scoped_lock guard(lock_);
        std::array<char, 256> text{};
        enter([&] {
            pci_lookup_name(access_.get(), text.data(), static_cast<int>(text.size()),
                            what | PCI_LOOKUP_NO_HWDB, first, second);
        });
        return text.data();
    }

    const Sysfs &sysfs_;
    std::mutex lock_;
    std::unique_ptr<pci_access, CloseLibrary> access_;
    std::map<RoutingId, Opened> devices_;
};

// Part of a function's memory.
class LiveSpace::Mapping {
public:
    // The kernel maps whole pages. Without an address, `error()` has the reason.
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

LiveSpace::LiveSpace(unsigned domain) : domain_(domain), sysfs_(domain) {
    if (geteuid() != 0)
        throw LiveError("--live: only root can read this machine's configuration space");
    if (sysfs_.functions().empty())
        throw LiveError("--live: no PCI functions on this machine (/sys/bus/pci/devices, domain " +
                        domain_text(domain) + ")");
    library_ = std::make_unique<Library>(sysfs_);
    if (shows_headers_alone())
        throw LiveError("--live: the kernel shows no more than headers of configuration space "
                        "(CAP_SYS_ADMIN is needed)");
}

LiveSpace::~LiveSpace() = default;

bool LiveSpace::shows_headers_alone() const {
    std::array<std::uint8_t, 4> bytes{};
    const auto reads = [&](unsigned offset) {
        return std::ranges::any_of(functions(), [&](RoutingId id) {
            return library_->read(id, offset, bytes.data(), bytes.size()) == 0;
        });
    };
    return !reads(pci::HEADER_SIZE) && reads(0);
}

std::vector<RoutingId> LiveSpace::functions() const {
    return sysfs_.functions();
}

// As lspci writes it.
std::string LiveSpace::title(RoutingId id) const {
    std::string address = domain_ == 0 ? bdf_text(id) : kernel_address(domain_, id);
    std::array<std::uint8_t, pci::HEADER_SIZE> header{};
    if (library_->read(id, 0, header.data(), header.size()) != 0)
        return address;
    const auto word = [&](unsigned at) { return header[at] | unsigned{header[at + 1]} << 8; };
    const bool is_virtual = sysfs_.is_virtual(id);
    std::string text = address + " " + library_->class_name(word(pci::CLASS_DEVICE)) + ": " +
                       library_->device_name(is_virtual ? sysfs_.vendor(id) : word(pci::VENDOR_ID),
                                             is_virtual ? sysfs_.device(id) : word(pci::DEVICE_ID));
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
    if (const int error = library_->read(id, offset, bytes.data(), width))
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
    const int error = library_->write(id, offset, bytes.data(), width);
    return error == 0 ? PCI_OK : failed(id, "write", offset, error);
}

// What is kept open of a function that has gone gives ENODEV, also when another one has come to its
// place. What is opened while the function is away gives ENOENT, even if it is back when it is
// looked for here. Spaces of functions end at 256 or 4096 bytes; asking beyond is no failure of the
// machine. What fails once for some reason often fails everywhere: each reason is said once.
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

// An errno of 0 stands for a function that does not decode memory accesses. The kernel keeps memory
// that a driver has claimed to that driver: mapping it is an invalid argument then.
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
        return nullptr;  // has been said
    if (!(command & pci::COMMAND_MEMORY_SPACE))
        return no_memory(id, bar, 0);
    const std::filesystem::path resource = sysfs_.file(id, "resource" + std::to_string(bar));
    auto mapping = std::make_unique<Mapping>(resource, offset, size);
    if (!mapping->address())
        return no_memory(id, bar, mapping->error());
    const std::scoped_lock guard(mappings_lock_);
    return mappings_.emplace(id, std::move(mapping))->second->address();
}

bool LiveSpace::answers(RoutingId id) {
    std::uint32_t vendor = 0;
    return read(id, pci::VENDOR_ID, 2, vendor) == PCI_OK && vendor != pci::VENDOR_ID_NONE &&
           vendor != pci::VENDOR_ID_NOT_READY;
}

bool LiveSpace::is_another(RoutingId id) const {
    return library_->is_another(id);
}

void LiveSpace::forget(RoutingId id) {
    library_->forget(id);
    const std::scoped_lock guard(mappings_lock_);
    mappings_.erase(id);
}

std::unique_ptr<ConfigImage> LiveSpace::snapshot() const {
    auto image = std::make_unique<ConfigImage>();
    for (const RoutingId id : functions()) {
        for (const std::size_t size : {sysfs_.config_size(id), std::size_t{pci::HEADER_SIZE}}) {
            std::vector<std::uint8_t> bytes(size);
            if (library_->read(id, 0, bytes.data(), static_cast<unsigned>(size)) != 0)
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
