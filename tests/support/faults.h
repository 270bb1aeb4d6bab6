// Injects faults: failing accesses to configuration space and failing allocations.
#pragma once

#include <functional>
#include <string>

#include "host/space/config_image.h"

namespace host::tests {

// Selects accesses.
using Which = std::function<bool(const ImageAccess &)>;
Which of(RoutingId id);
Which reads_of(RoutingId id, unsigned offset);
Which writes_to(RoutingId id, unsigned offset);

constexpr unsigned FOREVER = ~0U;

// Returns a filter for ConfigImage::set_filter(): accesses number `first` to `last` (from 1) of
// those that `which` picks end with `code`; with code 0 they are passed, and reads give all ones.
AccessFilter fail(Which which, unsigned first, unsigned last = FOREVER,
                  pci_err_t code = PCI_ERR_IO);

// Returns a filter by which a function vanishes at its n-th access.
inline AccessFilter vanish(RoutingId id, unsigned n) {
    return fail(of(id), n, FOREVER, PCI_ERR_NO_DEVICE);
}

// Calls number `first` to `last` (from 1) of this thread from now on fail, among those that may
// fail at any time: calloc, realloc, strdup, open, fstat, mmap, getrlimit, pthread_getattr_np and
// find_event_agent; 0: none. With a name, only calls of that function count, and with a size only
// those for that many bytes. Returns the number of counted calls since the last call of this
// function. Test programs are linked so that every such call of the module and the host counts.
unsigned fail_calls(unsigned first, unsigned last = FOREVER, const char *name = nullptr,
                    std::size_t size = 0);

// The n-th calloc finds no memory, and no other call fails.
inline void fail_calloc(unsigned n, std::size_t size = 0) {
    fail_calls(n, n, "calloc", size);
}

// The call that failed last, an allocation with its size: "calloc 48".
inline thread_local std::string failed_call;

// Replaces the host's enum_next_ari_func(), which gives rising numbers only, unless this is empty.
inline thread_local std::function<std::uint32_t(bdf_t)> next_ari_function;

}  // namespace host::tests
