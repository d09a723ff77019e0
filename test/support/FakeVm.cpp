#include "FakeVm.h"

#include "JVMTIUtils.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace {

struct Monitor {
    std::recursive_mutex mutex;
    std::condition_variable_any changed;
};

std::atomic<bool> failCreation{false};
std::atomic<int> created{0};
std::atomic<int> alive{0};
std::atomic<jlong> cpuTime{0};

Monitor *monitorOf(jrawMonitorID id) {
    return reinterpret_cast<Monitor *>(id);
}

jvmtiError JNICALL switchEvent(jvmtiEnv *, jvmtiEventMode, jvmtiEvent, jthread, ...) {
    return JVMTI_ERROR_NONE;
}

jvmtiEnv *fakeJvmti() {
    static jvmtiInterface_1_ table{};
    static jvmtiEnv environment{};
    table.CreateRawMonitor = [](jvmtiEnv *, const char *, jrawMonitorID *out) {
        if (failCreation) {
            return JVMTI_ERROR_OUT_OF_MEMORY;
        }
        ++created;
        ++alive;
        *out = reinterpret_cast<jrawMonitorID>(new Monitor);
        return JVMTI_ERROR_NONE;
    };
    table.DestroyRawMonitor = [](jvmtiEnv *, jrawMonitorID id) {
        --alive;
        delete monitorOf(id);
        return JVMTI_ERROR_NONE;
    };
    table.RawMonitorEnter = [](jvmtiEnv *, jrawMonitorID id) {
        monitorOf(id)->mutex.lock();
        return JVMTI_ERROR_NONE;
    };
    table.RawMonitorExit = [](jvmtiEnv *, jrawMonitorID id) {
        monitorOf(id)->mutex.unlock();
        return JVMTI_ERROR_NONE;
    };
    table.RawMonitorWait = [](jvmtiEnv *, jrawMonitorID id, jlong ms) {
        monitorOf(id)->changed.wait_for(monitorOf(id)->mutex, std::chrono::milliseconds(ms));
        return JVMTI_ERROR_NONE;
    };
    table.RawMonitorNotifyAll = [](jvmtiEnv *, jrawMonitorID id) {
        monitorOf(id)->changed.notify_all();
        return JVMTI_ERROR_NONE;
    };
    table.GetCurrentThreadCpuTime = [](jvmtiEnv *, jlong *nanos) {
        *nanos = cpuTime.fetch_add(1000);
        return JVMTI_ERROR_NONE;
    };
    table.GetPhase = [](jvmtiEnv *, jvmtiPhase *phase) {
        *phase = JVMTI_PHASE_LIVE;
        return JVMTI_ERROR_NONE;
    };
    table.GetErrorName = [](jvmtiEnv *, jvmtiError, char **name) {
        *name = strdup("JVMTI_ERROR_OF_A_TEST");
        return JVMTI_ERROR_NONE;
    };
    table.Deallocate = [](jvmtiEnv *, unsigned char *memory) {
        free(memory);
        return JVMTI_ERROR_NONE;
    };
    table.SetEventNotificationMode = switchEvent;
    environment.functions = &table;
    return &environment;
}

} // namespace

FakeVm::FakeVm()
    : wrapper(JVMTI_PHASE_LIVE), oldJvmti(jvmti), oldWrapper(jvmpiWrapper), oldInterface(eventInterface) {
    failCreation = false;
    cpuTime = 1000;
    jvmti = fakeJvmti();
    jvmpiWrapper = &wrapper;
    eventInterface = &wrapper;
}

FakeVm::~FakeVm() {
    jvmti = oldJvmti;
    jvmpiWrapper = oldWrapper;
    eventInterface = oldInterface;
}

void FakeVm::failMonitorCreation(bool fail) {
    failCreation = fail;
}

int FakeVm::monitorsCreated() const {
    return created;
}

int FakeVm::monitorsAlive() const {
    return alive;
}

JNIEnv *fakeEnv(int number) {
    return reinterpret_cast<JNIEnv *>(0x10000L + 64L * number);
}
