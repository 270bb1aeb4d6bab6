// libpci's error callback must not return, and by default ends the process. Here it jumps back to
// the call into the library; only C frames lie between.
#include "host/space/libpci.h"

#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>

extern "C" {
#include <pci/pci.h>
}

#include "host/space/live_error.h"
#include "platform/bdf.h"

namespace host {
namespace {

// The place where the error callback jumps to, and its reason. Guarded by the library's lock.
std::jmp_buf *way_out = nullptr;
std::array<char, 256> reason;

// libpci declares the callback with GCC's attribute, and C++'s [[noreturn]] is no part of the type.
__attribute__((noreturn, format(printf, 1, 2))) void give_up(char *format, ...) {
    va_list args;
    va_start(args, format);
    std::vsnprintf(reason.data(), reason.size(), format, args);
    va_end(args);
    std::longjmp(*way_out, 1);  // NOLINT(cert-err52-cpp): an exception cannot pass C frames
}

// Warnings are dropped, because the result of the access tells the same.
[[gnu::format(printf, 1, 2)]] void ignore(char *, ...) {}

// Runs calls of the library; returns false when it gave up. No object with a destructor may live in
// `calls`, because longjmp() would skip it.
template <typename Calls>
bool enter(Calls calls) {
    std::jmp_buf here;
    way_out = &here;
    if (setjmp(here) != 0)  // NOLINT(cert-err52-cpp)
        return false;
    calls();
    return true;
}

void release(pci_dev *device) {
    if (device != nullptr)
        enter([device] { pci_free_dev(device); });
}

}  // namespace

void Libpci::Close::operator()(pci_access *access) const {
    enter([access] { pci_cleanup(access); });
}

Libpci::Libpci(const Sysfs &sysfs) : sysfs_(sysfs) {
    access_.reset(pci_alloc());
    access_->error = give_up;
    access_->warning = ignore;
    access_->debug = ignore;
    access_->method = PCI_ACCESS_SYS_BUS_PCI;
    // `writeable` stays 0: otherwise libpci would open files for writing that are only read.
    std::string parameter = "sysfs.path";
    std::string folder = sysfs.folder();
    if (!enter([&] {
            pci_set_param(access_.get(), parameter.data(), folder.data());
            pci_init(access_.get());
        }))
        throw LiveError(std::string("this machine's configuration space: ") + reason.data());
}

Libpci::~Libpci() {
    for (const auto &[id, opened] : devices_)
        release(opened.device);
}

int Libpci::read(RoutingId id, unsigned offset, std::uint8_t *bytes, unsigned count) {
    return access(id, [=](pci_dev *device) {
        return pci_read_block(device, static_cast<int>(offset), bytes, static_cast<int>(count));
    });
}

int Libpci::write(RoutingId id, unsigned offset, std::uint8_t *bytes, unsigned count) {
    return access(id, [=](pci_dev *device) {
        return pci_write_block(device, static_cast<int>(offset), bytes, static_cast<int>(count));
    });
}

void Libpci::forget(RoutingId id) {
    const std::scoped_lock guard(lock_);
    const auto found = devices_.find(id);
    if (found == devices_.end())
        return;
    release(found->second.device);
    devices_.erase(found);
}

bool Libpci::is_another(RoutingId id) {
    const std::scoped_lock guard(lock_);
    const auto found = devices_.find(id);
    return found != devices_.end() && found->second.identity != sysfs_.identity(id);
}

std::string Libpci::class_name(unsigned class_code) {
    return look_up(PCI_LOOKUP_CLASS, static_cast<int>(class_code), 0);
}

std::string Libpci::device_name(unsigned vendor, unsigned device) {
    return look_up(PCI_LOOKUP_VENDOR | PCI_LOOKUP_DEVICE, static_cast<int>(vendor),
                   static_cast<int>(device));
}

// libpci reports failure by its result and leaves the reason in errno; an access that is cut
// short leaves errno 0.
template <typename Call>
int Libpci::access(RoutingId id, Call call) {
    const std::scoped_lock guard(lock_);
    const Opened &opened = find(id);
    if (opened.device == nullptr)
        return ENOMEM;
    if (opened.identity != sysfs_.identity(id))
        return ENODEV;
    volatile bool done = false;
    errno = 0;
    enter([&] { done = call(opened.device) != 0; });
    if (done)
        return 0;
    return errno != 0 ? errno : EIO;
}

// The result has no device when there is no memory.
const Libpci::Opened &Libpci::find(RoutingId id) {
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
    return opened;
}

// Looks only in pci.ids, not in udev's database with the same names: where that database is
// missing, libpci 3.9 leaks memory with every look-up.
std::string Libpci::look_up(int what, int first, int second) {
    const std::scoped_lock guard(lock_);
    std::array<char, 256> text{};
    enter([&] {
        pci_lookup_name(access_.get(), text.data(), static_cast<int>(text.size()),
                        what | PCI_LOOKUP_NO_HWDB, first, second);
    });
    return text.data();
}

}  // namespace host
