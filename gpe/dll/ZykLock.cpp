#include "ZykLock.h"

#include "Inside.h"
#include "ProbeLgKit.h"
#include "Relaxed.h"

#include <cstdio>

namespace {
Relaxed<void *> globalLock(nullptr);
char globalLockName[] = "_ZykLockGlobalLock";
} // namespace

ZykLock::~ZykLock() {
    JVMPIWrapper *jvm = eventInterface;
    void *own = made();
    if (own != nullptr && jvm != nullptr) {
        jvm->RawMonitorDestroy(own);
        monitor = nullptr;
    }
}

// Without a global lock the creation is unguarded: during start-up only one thread runs.
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
        snprintf(name, sizeof(name), "_%pZykLock", static_cast<void *>(this));
        monitor.store(jvm->RawMonitorCreate(name), std::memory_order_release);
    }
    if (guard != nullptr) {
        jvm->RawMonitorExit(guard);
    }
    if (made() == nullptr) {
        fputs("## ERROR: JVMPI could not create a Raw Monitor", stderr);
        fflush(stderr);
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

// A wait of 0 would never end by itself.
void ZykLock::wait(int64_t ms) {
    JVMPIWrapper *jvm = eventInterface;
    void *own = made();
    if (ms > 0 && own != nullptr && jvm != nullptr) {
        jvm->RawMonitorWait(own, ms);
    }
}

void ZykLock::notifyAll() {
    JVMPIWrapper *jvm = eventInterface;
    void *own = made();
    if (own != nullptr && jvm != nullptr) {
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
    ZykLock local;
    const ZykLockGuard guard(local);
    local.wait(ms);
}
