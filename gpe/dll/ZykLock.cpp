#include "ZykLock.h"

#include "Inside.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "Relaxed.h"
#include "platform.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {
Relaxed<void *> globalLock(nullptr);
char globalLockName[] = "_ZykLockGlobalLock";

constexpr int64_t SLEEP_INSTEAD_MS = 100;
} // namespace

ZykLock::~ZykLock() {
    JVMPIWrapper *jvm = eventInterface;
    void *own = made();
    if (own != nullptr && jvm != nullptr) {
        jvm->RawMonitorDestroy(own);
        monitor = nullptr;
    }
}

// Without a global lock two threads may make a monitor each: the first one's counts.
bool ZykLock::create() {
    JVMPIWrapper *jvm = eventInterface;
    if (jvm == nullptr) {
        return false;
    }
    void *guard = globalLock;
    if (guard != nullptr) {
        jvm->RawMonitorEnter(guard);
    }
    if (made() == nullptr) {
        char own[sizeof(name)];
        snprintf(own, sizeof(own), "_%pZykLock", static_cast<void *>(this));
        void *none = nullptr;
        void *mine = jvm->RawMonitorCreate(own);
        if (mine != nullptr && !monitor.compare_exchange_strong(none, mine, std::memory_order_acq_rel)) {
            jvm->RawMonitorDestroy(mine);
        } else {
            memcpy(name, own, sizeof(name));
        }
    }
    if (guard != nullptr) {
        jvm->RawMonitorExit(guard);
    }
    if (made() == nullptr) {
        if (!vmDeadSeen) { // a dead JVM makes none: that is no error
            fputs("## ERROR: JVMPI could not create a Raw Monitor", stderr);
            fflush(stderr);
        }
        return false;
    }
    return true;
}

bool ZykLock::unlock() {
    JVMPIWrapper *jvm = eventInterface;
    void *own = made();
    if (own == nullptr || jvm == nullptr) {
        return false;
    }
    jvm->RawMonitorExit(own);
    return true;
}

void ZykLock::wait(int64_t ms) {
    JVMPIWrapper *jvm = eventInterface;
    if (ms <= 0 || jvm == nullptr) {
        return;
    }
    if (made() == nullptr || !waitOut(*jvm, ms)) {
        thread_sleep(static_cast<int>(std::min(ms, SLEEP_INSTEAD_MS)));
    }
}

// Interrupted, the rest is waited. A wait of 0 would never end by itself. False if there was no waiting.
bool ZykLock::waitOut(JVMPIWrapper &jvm, int64_t ms) {
    const int64_t end = monotonicMicros() + ms * MICROS_PER_MS;
    const uint32_t seen = notices;
    WaitEnd result = jvm.RawMonitorWait(made(), ms);
    if (result != WaitEnd::Interrupted) {
        return result == WaitEnd::Returned;
    }
    while (result == WaitEnd::Interrupted && notices == seen) {
        const int64_t rest = end - monotonicMicros();
        if (rest <= 0) {
            break;
        }
        result = jvm.RawMonitorWait(made(), (rest + MICROS_PER_MS - 1) / MICROS_PER_MS);
    }
    jvm.interruptCurrentThread();
    return true;
}

void ZykLock::notifyAll() {
    JVMPIWrapper *jvm = eventInterface;
    void *own = made();
    if (own != nullptr && jvm != nullptr) {
        ++notices;
        jvm->RawMonitorNotifyAll(own);
    }
}

bool ZykLock::populateGlobalLock() {
    if (globalLock != nullptr) {
        return true;
    }
    JVMPIWrapper *jvm = eventInterface;
    if (jvm == nullptr) {
        messageError(1038, "Global lock being created even before initialization of JVMPI");
        return false;
    }
    globalLock = jvm->RawMonitorCreate(globalLockName);
    if (globalLock == nullptr) {
        messageError(1037, "JVMPI could not create a Raw Monitor for GlobalLock");
        return false;
    }
    return true;
}

bool ZykLock::destroyGlobalLock() {
    JVMPIWrapper *jvm = eventInterface;
    void *gone = globalLock;
    globalLock = nullptr;
    if (gone == nullptr || jvm == nullptr || !awaitDeparture()) {
        return false;
    }
    jvm->RawMonitorDestroy(gone);
    return true;
}

void waitOnLocalLock(int64_t ms) {
    const int64_t end = monotonicMicros() + ms * MICROS_PER_MS;
    ZykLock local(false);
    const ZykLockGuard guard(local);
    // Nobody notifies it: what ends it early is a monitor that could not be made, or a JVM that wakes for
    // nothing.
    for (int64_t rest = ms; rest > 0 && eventInterface != nullptr;) {
        local.wait(rest);
        rest = (end - monotonicMicros() + MICROS_PER_MS - 1) / MICROS_PER_MS;
    }
}
