#include "Pause.h"

#include "platform.h"

#include <algorithm>

// For the holder of the lock, unless there was no monitor to be had: then the wait is a short sleep.
void Pause::waitUntil(int64_t end) {
    while (!woken && !(resting && hurried) && eventInterface != nullptr) {
        const int64_t left = end - monotonicMicros();
        if (left <= 0) {
            return;
        }
        lock.wait((left + MICROS_PER_MS - 1) / MICROS_PER_MS);
    }
}

void Pause::sleep(int64_t ms) {
    if (ms <= 0) {
        return;
    }
    const ZykLockGuard guard(lock);
    waitUntil(monotonicMicros() + ms * MICROS_PER_MS);
    woken = false;
}

// Who has filled a queue goes on hurrying: what came before the rest need not be kept.
bool Pause::rest(int64_t ms) {
    if (ms <= 0) {
        return false;
    }
    const ZykLockGuard guard(lock);
    const int64_t end = monotonicMicros() + ms * MICROS_PER_MS;
    hurried = false;
    waitUntil(std::min(end, nextHurried));
    resting = true;
    waitUntil(end);
    resting = false;
    const bool cutShort = hurried && !woken;
    if (cutShort) {
        nextHurried = monotonicMicros() + LEAST_MS * MICROS_PER_MS;
    }
    woken = false;
    return cutShort;
}

void Pause::wake() {
    const ZykLockGuard guard(lock);
    woken = true;
    lock.notifyAll();
}

// In the order opposite to that of a rest: one of the two sees the other.
void Pause::callForHurry() {
    if (!hurried.exchange(true) && resting) {
        const ZykLockGuard guard(lock);
        lock.notifyAll();
    }
}
