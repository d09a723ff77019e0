// Lock over a raw monitor of the JVM, re-entrant. It may be built before the JVM interface exists: the
// monitor comes into being on first use. Without an interface every operation is a no-op that answers
// false, and callers go on unlocked: before the interface exists only one agent thread runs.
#pragma once

#include "JVMPIWrapper.h"

#include <atomic>
#include <cstdint>
#include <new>

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
    // An interrupt of the thread changes nothing: it is pending again afterwards. Without a monitor, though
    // there is an interface, it is a short sleep: a loop around it must not spin.
    void wait(int64_t ms);
    void notifyAll();

    // The monitor that guards the lazy creation of all others; made once, at probe start.
    static bool populateGlobalLock();
    static bool destroyGlobalLock();

private:
    bool create();
    bool waitOut(JVMPIWrapper &jvm, int64_t ms);
    void *made() const { return monitor.load(std::memory_order_acquire); }
    void enter() {
        JVMPIWrapper *jvm = eventInterface;
        if (jvm != nullptr) {
            jvm->RawMonitorEnter(made());
        }
    }

    char name[56] = "";
    uint32_t notices = 0; // guarded by the monitor: tells a notice that came together with an interrupt
    // Published with its contents: who sees it may enter it without having passed the global lock.
    std::atomic<void *> monitor{nullptr};
};

// A lock of the process: it is never destroyed, since threads may still come while the process ends.
class StaticZykLock {
public:
    StaticZykLock() { new (place) ZykLock(false); }
    operator ZykLock &() { return *reinterpret_cast<ZykLock *>(place); }

private:
    alignas(ZykLock) char place[sizeof(ZykLock)];
};

class ZykLockGuard {
public:
    explicit ZykLockGuard(ZykLock &guarded) : ZykLockGuard(&guarded) {}
    explicit ZykLockGuard(ZykLock *guarded) // null: nothing is held
        : held(guarded), entered(held != nullptr && held->lock()) {}
    ~ZykLockGuard() {
        if (entered) { // if not, another thread may have made the monitor since, and hold it
            held->unlock();
        }
    }
    ZykLockGuard(const ZykLockGuard &) = delete;
    ZykLockGuard &operator=(const ZykLockGuard &) = delete;

private:
    ZykLock *const held;
    const bool entered;
};

// Waits `ms` milliseconds on the monitor of a private lock: a sleep the JVM can see.
void waitOnLocalLock(int64_t ms);
