#include "tests/support/faults.h"

#include <pthread.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>
#include <utility>

#include "platform/server.h"

namespace {
thread_local unsigned calls = 0, first_failing_call = 0, last_failing_call = 0;
thread_local const char *counted = nullptr;  // null: calls of all names
thread_local std::size_t counted_size = 0;   // 0: any

// Clang's sanitizers make such calls themselves before they are ready to check.
#ifdef __clang__
#define UNCHECKED __attribute__((no_sanitize("address", "undefined", "coverage")))
#else
#define UNCHECKED
#endif

void note_failure(const char *name, std::size_t size) {
    host::tests::failed_call = name + (size > 0 ? ' ' + std::to_string(size) : "");
}

UNCHECKED bool call_fails(const char *name, std::size_t size = 0) {
    if (counted && (std::strcmp(name, counted) != 0 || (counted_size > 0 && size != counted_size)))
        return false;
    const bool fails = ++calls >= first_failing_call && calls <= last_failing_call;
    if (fails)
        note_failure(name, size);
    return fails;
}
}  // namespace

// The linker's --wrap option sends every call of the program here.
#define WRAP(type, name, failure, parameters, ...)                                                 \
    type __real_##name parameters;                                                                 \
    type __wrap_##name parameters;                                                                 \
    UNCHECKED type __wrap_##name parameters {                                                      \
        return call_fails(#name) ? failure : __real_##name(__VA_ARGS__);                           \
    }

extern "C" {
WRAP(char *, strdup, nullptr, (const char *text), text)
WRAP(int, open, -1, (const char *path, int flags, mode_t mode), path, flags, mode)
WRAP(int, fstat, -1, (int file, struct stat *status), file, status)
WRAP(void *, mmap, MAP_FAILED,
     (void *at, std::size_t size, int prot, int flags, int file, off_t from), at, size, prot, flags,
     file, from)
WRAP(int, getrlimit, -1, (int resource, rlimit *limit), resource, limit)
WRAP(int, pthread_getattr_np, -1, (pthread_t thread, pthread_attr_t *attributes), thread,
     attributes)
WRAP(event_agent_t *, find_event_agent, nullptr, (bdf_t bdf), bdf)

std::uint32_t __real_enum_next_ari_func(bdf_t bdf, std::uint32_t reserved);
std::uint32_t __wrap_enum_next_ari_func(bdf_t bdf, std::uint32_t reserved);
void *__real_calloc(std::size_t count, std::size_t size);
void *__wrap_calloc(std::size_t count, std::size_t size);
void *__real_realloc(void *old, std::size_t size);

std::uint32_t __wrap_enum_next_ari_func(bdf_t bdf, std::uint32_t reserved) {
    const auto &stand_in = host::tests::next_ari_function;
    return stand_in ? stand_in(bdf) : __real_enum_next_ari_func(bdf, reserved);
}

UNCHECKED void *__wrap_calloc(std::size_t count, std::size_t size) {
    return call_fails("calloc", count * size) ? nullptr : __real_calloc(count, size);
}

UNCHECKED void *__wrap_realloc(void *old, std::size_t size) {
    return call_fails("realloc", size) ? nullptr : __real_realloc(old, size);
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

unsigned fail_calls(unsigned first, unsigned last, const char *name, std::size_t size) {
    first_failing_call = first;
    last_failing_call = first > 0 ? last : 0;
    counted = name;
    counted_size = size;
    return std::exchange(calls, 0);
}

}  // namespace host::tests
