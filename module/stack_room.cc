#include "module/stack_room.h"

#include <pthread.h>

namespace enable_features {

namespace {

// The lowest address of the calling thread's stack, null when it cannot be told.
const char *stack_floor() {
    pthread_attr_t attributes;
    if (pthread_getattr_np(pthread_self(), &attributes) != 0)
        return nullptr;
    void *lowest = nullptr;
    std::size_t size = 0;
    const bool known = pthread_attr_getstack(&attributes, &lowest, &size) == 0;
    pthread_attr_destroy(&attributes);
    return known ? static_cast<const char *>(lowest) : nullptr;
}

// Kept for each thread: for the main thread the C library reads the process's memory map each time.
// Static TLS, because the dynamic kind may need memory on first use.
[[gnu::tls_model("initial-exec")]] thread_local const char *floor_of_thread = nullptr;

}  // namespace

std::size_t __stackavail() {
    if (floor_of_thread == nullptr)
        floor_of_thread = stack_floor();
    const char *here = static_cast<const char *>(__builtin_frame_address(0));
    if (floor_of_thread == nullptr || here <= floor_of_thread)
        return 0;
    const auto left = static_cast<std::size_t>(here - floor_of_thread);
    return left > STACK_RESERVE ? left - STACK_RESERVE : 0;
}

}  // namespace enable_features
