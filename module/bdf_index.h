// Entries of a list by the address that they are for. A list holds one entry an address at most, so
// that the index and a walk from the list's first entry find the same; it is there because lists of
// 65,536 functions are built by looking every function up. Guarded by the list's lock.
#pragma once

#include "module/entry_list.h"
#include "platform/types.h"

namespace enable_features {

struct bdf_index_t {
    list_entry_t *entries[BDF_HIGHEST + 1];
};

inline list_entry_t *find_indexed(const bdf_index_t &index, bdf_t bdf) {
    return bdf <= BDF_HIGHEST ? index.entries[bdf] : nullptr;
}

}  // namespace enable_features
