#include "ZykLock.h"

#include "ProbeLgKit.h"

#include <cstdio>

namespace {
Relaxed<void *> globalLock(nullptr);
char globalLockName[] = "_ZykLockGlobalLock";
} // namespace

ZykLock::~ZykLock() {
    JVMPIWrapper *jvm = eventInterface;
    if (monitor != nullptr && jvm != nullptr) {
        jvm->RawMonitorDestroy(monitor);
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
    if (monitor == nullptr) {
        snprintf(name, sizeof(name), "_%pZykLock", static_cast<void *>(this));
        monitor = jvm->RawMonitorCreate(name);
    }
    if (guard != nullptr) {
        jvm->RawMonitorExit(guard);
    }
    if (monitor == nullptr) {
        fputs("## ERROR: JVMPI could not create a Raw Monitor", stderr);
        fflush(stderr);
        return false;
    }
    return true;
}

bool ZykLock::unlock() {
    JVMPIWrapper *jvm = eventInterface;
    if (monitor == nullptr || jvm == nullptr) {
        return false;
    }
    jvm->RawMonitorExit(monitor);
    return true;
}

// A wait of 0 would never end by itself.
void ZykLock::wait(int64_t ms) {
    JVMPIWrapper *jvm = eventInterface;
    if (ms > 0 && monitor != nullptr && jvm != nullptr) {
        jvm->RawMonitorWait(monitor, ms);
    }
}

void ZykLock::notifyAll() {
    JVMPIWrapper *jvm = eventInterface;
    if (monitor != nullptr && jvm != nullptr) {
        jvm->RawMonitorNotifyAll(monitor);
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
    if (globalLock == nullptr || jvm == nullptr) {
        return false;
    }
    jvm->RawMonitorDestroy(globalLock);
    globalLock = nullptr;
    return true;
}

void waitOnLocalLock(int64_t ms) {
    ZykLock local;
    const ZykLockGuard guard(local);
    local.wait(ms);
}
