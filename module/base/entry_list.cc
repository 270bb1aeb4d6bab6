#include "module/base/entry_list.h"

namespace enable_features {

void append_entry(entry_list_t &list, list_entry_t *entry) {
    // `last` alone tells whether the list is empty: the new entry hangs on the tail's link, or on
    // `first` when there is no tail.
    list_entry_t **link = list.last != nullptr ? &list.last->next : &list.first;
    entry->next = nullptr;
    entry->prev = link;
    *link = entry;
    list.last = entry;
    list.count++;
}

}  // namespace enable_features
