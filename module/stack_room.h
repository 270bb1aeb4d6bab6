// Tells how much of the calling thread's stack may still be used for copies.
#pragma once

#include <cstddef>

namespace enable_features {

// Bytes kept back for everything that runs below a caller that fills its stack: the feature
// parsers, the list builds that they start (which descend through nested bridges) and the host's
// log output.
constexpr std::size_t STACK_RESERVE = 128 * 1024;

// Returns the lowest address of the calling thread's stack; where the address space is limited, the
// lowest that the stack is sure to reach. Call it once: for the main thread the C library reads the
// process's memory map each time.
const char *stack_floor();

// Returns the bytes left above `floor`, the lowest address of the calling thread's stack, less
// STACK_RESERVE; 0 when that is used up.
std::size_t __stackavail(const char *floor);

}  // namespace enable_features
