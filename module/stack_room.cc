#include "module/stack_room.h"

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <bit>
#include <cstdint>

namespace enable_features {

namespace {

// Without a memory map to read (no /proc), the main thread's stack is unknown. Half of what
// RLIMIT_STACK allows is assumed, because the other half may be in use already, and no more than
// half of the usual limit.
const char *assumed_floor() {
    constexpr rlim_t USUAL_LIMIT = 8 * 1024 * 1024;
    rlimit limit = {};
    const char *here = static_cast<const char *>(__builtin_frame_address(0));
    if (getrlimit(RLIMIT_STACK, &limit) != 0)
        return here;
    return here - std::min(limit.rlim_cur, USUAL_LIMIT) / 2;
}

// Returns true when the stack reaches down to `floor`, after growing it to there if need be.
// getrlimit() is called because it is the kernel that writes its result: that makes the stack grow
// like any write, but where the stack cannot grow, the call fails and the process does not end.
bool reaches(const char *floor) {
    constexpr std::uintptr_t ALIGNMENT = alignof(rlimit);
    const std::uintptr_t at =
        (std::bit_cast<std::uintptr_t>(floor) + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
    return getrlimit(RLIMIT_STACK, std::bit_cast<rlimit *>(at)) == 0;
}

// The main thread's stack grows while it is used, and a stack that cannot grow to its own limit
// ends the process. A limited address space is shared with everything else that is allocated, so
// the stack is grown to a small share of it at once, before another allocation can take it. Stacks
// of other threads do not grow; the share does them no harm.
const char *reachable_floor(const char *floor) {
    constexpr rlim_t SHARE = 16;
    rlimit space = {};
    if (getrlimit(RLIMIT_AS, &space) != 0 || space.rlim_cur == RLIM_INFINITY)
        return floor;
    const char *here = static_cast<const char *>(__builtin_frame_address(0));
    if (here <= floor)
        return floor;  // GCOVR_EXCL_LINE: on a stack that is not the thread's own
    std::size_t room = std::min(static_cast<rlim_t>(here - floor), space.rlim_cur / SHARE);
    while (room > STACK_RESERVE && !reaches(here - room))
        room /= 2;
    return here - room;
}

// Returns the lowest address that RLIMIT_STACK, or the thread's own size, allows.
const char *lowest_address() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return assumed_floor();
    void *lowest = nullptr;
    std::size_t size = 0;
    const bool known = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
    pthread_attr_destroy(&attributes);
    return known ? static_cast<const char *>(lowest) : assumed_floor();
}

}  // namespace

const char *stack_floor() {
    return reachable_floor(lowest_address());
}

std::size_t __stackavail(const char *floor) {
    const char *here = static_cast<const char *>(__builtin_frame_address(0));
    if (here <= floor)
        return 0;  // GCOVR_EXCL_LINE: on a stack that is not the thread's own
    const auto left = static_cast<std::size_t>(here - floor);
    return left > STACK_RESERVE ? left - STACK_RESERVE : 0;
}

}  // namespace enable_features
