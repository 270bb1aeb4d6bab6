// Calls the operations of a capability object.
#pragma once

#include "platform/capability.h"

namespace enable_features {

// Calls `operation` of the object's table with the object and `args`. The host requires the
// object's first word to announce every call; the word is stored atomically, because hooks on
// several threads share an object.
template <typename Cap, typename Ops, typename Result, typename... Params, typename... Args>
Result call(Cap *cap, Result (*Ops::*operation)(Cap *, Params...), Args... args) {
    __atomic_store_n(&cap->head.call_word, CAP_CALL_WORD, __ATOMIC_RELAXED);
    return (cap->ops->*operation)(cap, args...);
}

}  // namespace enable_features
