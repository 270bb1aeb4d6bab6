// Copies texts.
#pragma once

#include <cstring>

#include "module/base/guards.h"

namespace enable_features {

// Copies a text to the heap; null when memory is short.
inline heap_ptr<char> copy_text(const char *text) {
    return heap_ptr<char>(::strdup(text));
}

}  // namespace enable_features
