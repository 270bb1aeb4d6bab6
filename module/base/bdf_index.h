// An index of a list's entries by address. Without it, a list of 65,536 functions would take
// quadratic time, because building the list looks every function up. A slot keeps the first entry
// that was added for its address, so that the index finds the same entry as a walk from the list's
// first entry. The list's lock guards the index.
#pragma once

#include "module/base/entry_list.h"
#include "platform/types.h"

namespace enable_features {

struct bdf_index_t {
    list_entry_t *entries[BDF_HIGHEST + 1];
};

inline list_entry_t *find_indexed(const bdf_index_t &index, bdf_t bdf) {
    return bdf <= BDF_HIGHEST ? index.entries[bdf] : nullptr;
}

inline void add_to_index(bdf_index_t &index, bdf_t bdf, list_entry_t *entry) {
    if (bdf <= BDF_HIGHEST && index.entries[bdf] == nullptr)
        index.entries[bdf] = entry;
}

}  // namespace enable_features
