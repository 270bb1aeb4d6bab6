// libpci's error callback must not return, and by default ends the process. Here it jumps back to
// the call into the library; only C frames lie between.
#include "host/space/device_names.h"

#include <array>
#include <csetjmp>

extern "C" {
#include <pci/pci.h>
}

namespace host {
namespace {

// The place where the error callback jumps to. Guarded by the library's lock.
std::jmp_buf *way_out = nullptr;

// libpci declares the callback with GCC's attribute, and C++'s [[noreturn]] is no part of the type.
__attribute__((noreturn, format(printf, 1, 2))) void give_up(char *, ...) {
    std::longjmp(*way_out, 1);  // NOLINT(cert-err52-cpp): an exception cannot pass C frames
}

// Warnings are dropped: numbers take the place of names that cannot be read.
[[gnu::format(printf, 1, 2)]] void ignore(char *, ...) {}

// Runs calls of the library until it gives up. No object with a destructor may live in `calls`,
// because longjmp() would skip it.
template <typename Calls>
void enter(Calls calls) {
    std::jmp_buf here;
    way_out = &here;
    if (setjmp(here) == 0)  // NOLINT(cert-err52-cpp)
        calls();
}

}  // namespace

void DeviceNames::Close::operator()(pci_access *access) const {
    enter([access] { pci_cleanup(access); });
}

// Names alone need no pci_init(), which would look for a way to configuration space.
DeviceNames::DeviceNames() : access_(pci_alloc()) {
    access_->error = give_up;
    access_->warning = ignore;
    access_->debug = ignore;
}

std::string DeviceNames::class_name(unsigned class_code) {
    return look_up(PCI_LOOKUP_CLASS, static_cast<int>(class_code), 0);
}

std::string DeviceNames::device_name(unsigned vendor, unsigned device) {
    return look_up(PCI_LOOKUP_VENDOR | PCI_LOOKUP_DEVICE, static_cast<int>(vendor),
                   static_cast<int>(device));
}

// Looks only in pci.ids, not in udev's database with the same names: where that database is
// missing, libpci 3.9 leaks memory with every look-up.
std::string DeviceNames::look_up(int what, int first, int second) {
    const std::scoped_lock guard(lock_);
    std::array<char, 256> text{};
    enter([&] {
        pci_lookup_name(access_.get(), text.data(), static_cast<int>(text.size()),
                        what | PCI_LOOKUP_NO_HWDB, first, second);
    });
    return text.data();
}

}  // namespace host
