// Lock over a raw monitor of the JVM, re-entrant. It may be built before the JVM interface exists: the
// monitor comes into being on first use. Without an interface every operation is a no-op that answers
// false, and callers go on unlocked: before the interface exists only one agent thread runs.
#pragma once

#include "JVMPIWrapper.h"

#include <atomic>
#include <cstdint>

class ZykLock {
public:
    ZykLock() : ZykLock(true) {}
    explicit ZykLock(bool createOnCreation) {
        if (createOnCreation) {
            ensureCreated();
        }
    }
    ~ZykLock();
    ZykLock(const ZykLock &) = delete;
    ZykLock &operator=(const ZykLock &) = delete;

    bool ensureCreated() { return made() != nullptr || create(); }

    bool lock() {
        if (!ensureCreated()) {
            return false;
        }
        enter();
        return true;
    }
    bool unlock();

    // For the holder: waits until notified or `ms` milliseconds have passed (not positive: returns at once).
    void wait(int64_t ms);
    void notifyAll();

    // The monitor that guards the lazy creation of all others; made once, at probe start.
    static bool populateGlobalLock();
    static bool destroyGlobalLock();

private:
    bool create();
    void *made() const { return monitor.load(std::memory_order_acquire); }
    void enter() {
        JVMPIWrapper *jvm = eventInterface;
        if (jvm != nullptr) {
            jvm->RawMonitorEnter(made());
        }
    }

    char name[56] = "";
    // Published with its contents: who sees it may enter it without having passed the global lock.
    std::atomic<void *> monitor{nullptr};
};

class ZykLockGuard {
public:
    explicit ZykLockGuard(ZykLock &guarded) : held(guarded) { held.lock(); }
    ~ZykLockGuard() { held.unlock(); }
    ZykLockGuard(const ZykLockGuard &) = delete;
    ZykLockGuard &operator=(const ZykLockGuard &) = delete;

private:
    ZykLock &held;
};

// Waits `ms` milliseconds on the monitor of a private lock: a sleep the JVM can see.
void waitOnLocalLock(int64_t ms);
