// Tail-appended lists whose entries are never removed or freed, so that an entry found under the
// list's lock may be used after the lock is released.
#pragma once

#include <pthread.h>

#include <cstdint>

namespace enable_features {

// Every entry begins with this.
struct list_entry_t {
    list_entry_t *next;   // null at the tail
    list_entry_t **prev;  // the link that points to this entry: the entry before's next, or the
                          // list's first
};

struct entry_list_t {
    list_entry_t *first;  // null when empty
    list_entry_t *last;   // null when empty
    std::uint32_t count;
    pthread_mutex_t lock;  // guards the three above and the entries' links
};

// Appends `entry`; the caller holds the list's lock. The list owns the entry from then on.
void append_entry(entry_list_t &list, list_entry_t *entry);

}  // namespace enable_features
