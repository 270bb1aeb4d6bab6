// How much of the calling thread's stack may still be used for copies.
#pragma once

#include <cstddef>

namespace enable_features {

// Kept back for everything that runs below a caller that fills its stack: the feature parsers, the
// list builds that they start (which descend through nested bridges) and the host's log output.
constexpr std::size_t STACK_RESERVE = 128 * 1024;

// Bytes left on the calling thread's stack, less STACK_RESERVE; 0 when that is used up, or when the
// stack's limits cannot be told.
std::size_t __stackavail();

}  // namespace enable_features
