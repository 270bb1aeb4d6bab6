#include "module/stack_room.h"

#include <pthread.h>
#include <sys/resource.h>

#include <algorithm>

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

}  // namespace

const char *stack_floor() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return assumed_floor();
    void *lowest = nullptr;
    std::size_t size = 0;
    const bool known = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
    pthread_attr_destroy(&attributes);
    return known ? static_cast<const char *>(lowest) : assumed_floor();
}

std::size_t __stackavail(const char *floor) {
    const char *here = static_cast<const char *>(__builtin_frame_address(0));
    if (here <= floor)
        return 0;
    const auto left = static_cast<std::size_t>(here - floor);
    return left > STACK_RESERVE ? left - STACK_RESERVE : 0;
}

}  // namespace enable_features
