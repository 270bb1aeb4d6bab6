// Scope guards, which give back on every path what they took.
#pragma once

#include <pthread.h>

#include <cstdlib>
#include <memory>

namespace enable_features {

struct mutex_guard {
    explicit mutex_guard(pthread_mutex_t &mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~mutex_guard() { pthread_mutex_unlock(&mutex_); }
    mutex_guard(const mutex_guard &) = delete;
    mutex_guard &operator=(const mutex_guard &) = delete;

    pthread_mutex_t &mutex_;
};

struct read_guard {
    explicit read_guard(pthread_rwlock_t &lock) : lock_(lock) { pthread_rwlock_rdlock(&lock_); }
    ~read_guard() { pthread_rwlock_unlock(&lock_); }
    read_guard(const read_guard &) = delete;
    read_guard &operator=(const read_guard &) = delete;

    pthread_rwlock_t &lock_;
};

struct free_memory {
    void operator()(void *memory) const { std::free(memory); }
};

// Owns memory of malloc and its kin: entries not yet listed, copies of text, capability objects.
template <typename T>
using heap_ptr = std::unique_ptr<T, free_memory>;

}  // namespace enable_features
