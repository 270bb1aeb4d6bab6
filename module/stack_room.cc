#include "module/stack_room.h"

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>
#include <bit>
#include <cstdint>

namespace enable_features {

namespace {

// Of the main thread when there is no memory map to read (no /proc): half of what the limit allows,
// as the other half may be in use already, and no more than half of the usual limit.
const char *assumed_floor() {
    constexpr rlim_t USUAL_LIMIT = 8 * 1024 * 1024;
    rlimit limit = {};
    const char *here = static_cast<const char *>(__builtin_frame_address(0));
    if (getrlimit(RLIMIT_STACK, &limit) != 0)
        return here;
    return here - std::min(limit.rlim_cur, USUAL_LIMIT) / 2;
}

// Whether the stack reaches down to `floor`, and grows to there if it does not yet. It is the
// kernel that writes there: it makes the stack grow as for any write, but where it cannot, it fails
// the call and does not end the process.
bool reaches(const char *floor) {
    constexpr std::uintptr_t ALIGNMENT = alignof(rlimit);
    const std::uintptr_t at =
        (std::bit_cast<std::uintptr_t>(floor) + ALIGNMENT - 1) & ~(ALIGNMENT - 1);
    return getrlimit(RLIMIT_STACK, std::bit_cast<rlimit *>(at)) == 0;
}

// The main thread's stack grows while it is used, and a stack that cannot grow to its own limit
// ends the process. Where the address space is limited it competes with everything else that is
// allocated: there it gets a small share, and at once, so that nobody else can take it. Stacks of
// other threads do not grow; the share does them no harm.
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

// What the limit of the stack's own size allows.
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
