// A JVM interface without a JVM: a function table whose raw monitors really lock, wait and notify and whose
// CPU clock counts, so that code over `ZykLock` runs under the thread sanitiser. Installed for the life of
// the object; restores what was there.
#pragma once

#include "JVMPIWrapper.h"

#include <jvmti.h>

class FakeVm {
public:
    FakeVm();
    ~FakeVm();
    FakeVm(const FakeVm &) = delete;
    FakeVm &operator=(const FakeVm &) = delete;

    // The next creations of raw monitors fail.
    void failMonitorCreation(bool fail);
    int monitorsCreated() const;
    int monitorsAlive() const;

    JVMPIWrapper wrapper;

private:
    jvmtiEnv *oldJvmti;
    JVMPIWrapper *oldWrapper;
    JVMPIWrapper *oldInterface;
};

// A distinct, never dereferenced environment pointer for tests that only need identity.
JNIEnv *fakeEnv(int number);
