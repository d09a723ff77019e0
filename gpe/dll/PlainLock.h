// A lock for words of the agent's own, held for a few instructions: it needs no JVM and no memory and cannot
// fail. For `std::lock_guard`. Not re-entrant; no call into Java behind it, and no other lock but that of a
// pool of memory.
#pragma once

#include <pthread.h>

class PlainLock {
public:
    constexpr PlainLock() = default;
    PlainLock(const PlainLock &) = delete;
    PlainLock &operator=(const PlainLock &) = delete;

    void lock() { pthread_mutex_lock(&mutex); }
    void unlock() { pthread_mutex_unlock(&mutex); }

private:
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
};
