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

jvmtiError JNICALL createMonitor(jvmtiEnv *, const char *, jrawMonitorID *out) {
    if (failCreation) {
        return JVMTI_ERROR_OUT_OF_MEMORY;
    }
    ++created;
    ++alive;
    *out = reinterpret_cast<jrawMonitorID>(new Monitor);
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL destroyMonitor(jvmtiEnv *, jrawMonitorID id) {
    --alive;
    delete monitorOf(id);
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL enterMonitor(jvmtiEnv *, jrawMonitorID id) {
    monitorOf(id)->mutex.lock();
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL exitMonitor(jvmtiEnv *, jrawMonitorID id) {
    monitorOf(id)->mutex.unlock();
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL waitMonitor(jvmtiEnv *, jrawMonitorID id, jlong ms) {
    monitorOf(id)->changed.wait_for(monitorOf(id)->mutex, std::chrono::milliseconds(ms));
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL notifyMonitor(jvmtiEnv *, jrawMonitorID id) {
    monitorOf(id)->changed.notify_all();
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL readCpuTime(jvmtiEnv *, jlong *nanos) {
    *nanos = cpuTime.fetch_add(1000);
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL readPhase(jvmtiEnv *, jvmtiPhase *phase) {
    *phase = JVMTI_PHASE_LIVE;
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL readErrorName(jvmtiEnv *, jvmtiError, char **name) {
    *name = strdup("JVMTI_ERROR_OF_A_TEST");
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL release(jvmtiEnv *, unsigned char *memory) {
    free(memory);
    return JVMTI_ERROR_NONE;
}

jvmtiError JNICALL switchEvent(jvmtiEnv *, jvmtiEventMode, jvmtiEvent, jthread, ...) {
    return JVMTI_ERROR_NONE;
}

jvmtiEnv *fakeJvmti() {
    static jvmtiInterface_1_ table{};
    static jvmtiEnv environment{};
    table.CreateRawMonitor = createMonitor;
    table.DestroyRawMonitor = destroyMonitor;
    table.RawMonitorEnter = enterMonitor;
    table.RawMonitorExit = exitMonitor;
    table.RawMonitorWait = waitMonitor;
    table.RawMonitorNotifyAll = notifyMonitor;
    table.GetCurrentThreadCpuTime = readCpuTime;
    table.GetPhase = readPhase;
    table.GetErrorName = readErrorName;
    table.Deallocate = release;
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

void FakeVm::setCpuTime(jlong nanos) {
    cpuTime = nanos;
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
