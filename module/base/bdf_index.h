// Entries of a list by the address that they are for. A place keeps the first entry that was added
// for its address, so that the index finds what a walk from the list's first entry finds; it is
// there because lists of 65,536 functions are built by looking every function up. Guarded by the
// list's lock.
#pragma once

#include <algorithm>

#include "module/base/entry_list.h"
#include "platform/types.h"

namespace enable_features {

struct bdf_index_t {
    list_entry_t *entries[BDF_HIGHEST + 1];
};

inline void clear_index(bdf_index_t &index) {
    std::ranges::fill(index.entries, nullptr);
}

inline list_entry_t *find_indexed(const bdf_index_t &index, bdf_t bdf) {
    return bdf <= BDF_HIGHEST ? index.entries[bdf] : nullptr;
}

inline void add_to_index(bdf_index_t &index, bdf_t bdf, list_entry_t *entry) {
    if (bdf <= BDF_HIGHEST && index.entries[bdf] == nullptr)
        index.entries[bdf] = entry;
}

}  // namespace enable_features
