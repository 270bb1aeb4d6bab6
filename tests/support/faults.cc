#include "tests/support/faults.h"

#include <cstdlib>

namespace {
thread_local unsigned callocs_until_failure = 0;
thread_local std::size_t size_to_fail = 0;  // 0: any
}  // namespace

// The linker's --wrap option sends every calloc and realloc of the program here.
extern "C" {
void *__real_calloc(std::size_t count, std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *old, std::size_t size);

void *__wrap_calloc(std::size_t count, std::size_t size) {
    const bool counts = size_to_fail == 0 || count * size == size_to_fail;
    if (counts && callocs_until_failure > 0 && --callocs_until_failure == 0)
        return nullptr;
    return __real_calloc(count, size);
}

void *__wrap_realloc(void *old, std::size_t size) {
    return size == host::tests::size_of_failing_realloc ? nullptr : __real_realloc(old, size);
}
}

namespace host::tests {

Which of(RoutingId id) {
    return [id](const ImageAccess &access) { return access.id == id; };
}

Which reads_of(RoutingId id, unsigned offset) {
    return [=](const ImageAccess &access) {
        return !access.is_write && access.id == id && access.offset == offset;
    };
}

Which writes_to(RoutingId id, unsigned offset) {
    return [=](const ImageAccess &access) {
        return access.is_write && access.id == id && access.offset == offset;
    };
}

AccessFilter fail(Which which, unsigned first, unsigned last, pci_err_t code) {
    return [=, n = 0U](ImageAccess &access) mutable {
        if (!which(access) || ++n < first || n > last)
            return PCI_OK;
        if (!access.is_write)
            access.value = ~0U;
        return code;
    };
}

void fail_calloc(unsigned n, std::size_t size) {
    callocs_until_failure = n;
    size_to_fail = size;
}

}  // namespace host::tests
