// Re-entrant operating-system mutex for code that runs before raw monitors are usable.
// A thread that waits comes back to its loop every 10 seconds, but never gives up.
#pragma once

#include <pthread.h>

class ZykOsLock {
public:
    ZykOsLock() : ZykOsLock(true) {}
    explicit ZykOsLock(bool createOnCreation);
    ~ZykOsLock();
    ZykOsLock(const ZykOsLock &) = delete;
    ZykOsLock &operator=(const ZykOsLock &) = delete;

    // Makes the mutex if there is none; guarded, so that two threads make one. False if memory ran out.
    bool ensureCreated();

    // Both are false, and return at once, while there is no mutex.
    bool lock();
    bool unlock();

private:
    pthread_mutex_t *mutex = nullptr;
};
