// How much of the calling thread's stack may still be used for copies.
#pragma once

#include <cstddef>

namespace enable_features {

// Kept back for everything that runs below a caller that fills its stack: the feature parsers, the
// list builds that they start (which descend through nested bridges) and the host's log output.
constexpr std::size_t STACK_RESERVE = 128 * 1024;

// The lowest address of the calling thread's stack; where the address space is limited, the lowest
// that it is sure to reach. To be asked for once: for the main thread the C library reads the
// process's memory map each time.
const char *stack_floor();

// Bytes left on the calling thread's stack, of which `floor` is the lowest address, less
// STACK_RESERVE; 0 when that is used up.
std::size_t __stackavail(const char *floor);

}  // namespace enable_features
