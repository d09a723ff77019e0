#include "JVMPIWrapper.h"

#include "JVMTIUtils.h"
#include "ProbeLgKit.h"
#include "jnihelp.h"

#include <atomic>
#include <cstdlib>
#include <new>

Relaxed<JVMPIWrapper *> jvmpiWrapper(nullptr);
Relaxed<JVMPIWrapper *> eventInterface(nullptr);
JavaVM *fakeJvm = nullptr;

namespace {

constexpr jint JVMPI_VERSION_1 = 0x10000001;
constexpr jint JVMPI_VERSION_1_1 = 0x10000002;
constexpr jint JVMPI_VERSION_1_2 = 0x10000003;
constexpr jint JVMDG_VERSION = 0x7f000001;
constexpr int UNSUPPORTED_OPERATION = 73; // of JVMs with virtual threads, which have no CPU clock

struct EventPair {
    int jvmpi;
    jvmtiEvent jvmtiNumber;
};

constexpr EventPair eventMap[] = {
    {JVMPI_EVENT_THREAD_START, JVMTI_EVENT_THREAD_START},
    {JVMPI_EVENT_THREAD_END, JVMTI_EVENT_THREAD_END},
    {JVMPI_EVENT_CLASS_LOAD_HOOK, JVMTI_EVENT_CLASS_FILE_LOAD_HOOK},
    {JVMPI_EVENT_GC_START, JVMTI_EVENT_GARBAGE_COLLECTION_START},
    {JVMPI_EVENT_GC_FINISH, JVMTI_EVENT_GARBAGE_COLLECTION_FINISH},
};

jint switchEvent(jvmtiEventMode mode, jint event_type) {
    for (const EventPair &pair : eventMap) {
        if (pair.jvmpi == event_type) {
            setEventMode(mode, pair.jvmtiNumber);
        }
    }
    return 0;
}

// The thread sanitiser does not see what the JVM's monitors order.
#if defined(__SANITIZE_THREAD__)
extern "C" void __tsan_acquire(void *address);
extern "C" void __tsan_release(void *address);
void tellAcquired(void *monitor) {
    __tsan_acquire(monitor);
}
void tellReleased(void *monitor) {
    __tsan_release(monitor);
}
#else
void tellAcquired(void *) {}
void tellReleased(void *) {}
#endif

jrawMonitorID asMonitor(void *lock_id) {
    return static_cast<jrawMonitorID>(lock_id);
}

// The thread's group, if it has one, holds a local reference that the event handler's frame releases.
void readThreadNames(jthread thread, JVMPI_Event *event) {
    jvmtiThreadInfo info{};
    jvmtiError result = jvmti->GetThreadInfo(thread, &info);
    AM_CHECK_JVMTI(result, "Error when getting thread info from jvmti");
    if (result != JVMTI_ERROR_NONE) {
        return;
    }
    event->thread_name = dupString(info.name);
    freeJVMTIMemory(info.name);
    if (info.thread_group == nullptr) {
        return;
    }
    jvmtiThreadGroupInfo group{};
    result = jvmti->GetThreadGroupInfo(info.thread_group, &group);
    AM_CHECK_JVMTI(result, "Error when getting thread groupinfo from jvmti");
    if (result == JVMTI_ERROR_NONE) {
        event->group_name = dupString(group.name);
        freeJVMTIMemory(group.name);
    }
}

// How a thread is interrupted; looked up at VM init, as memory may be out when it is wanted.
Relaxed<jclass> threadClass(nullptr);        // global, as the next
Relaxed<jclass> virtualThreadClass(nullptr); // null where the JVM has none
Relaxed<jmethodID> interruptMethod(nullptr);

// The server may have overridden the method, and the caller holds a monitor of ours: only the JVM's own is
// called.
void callInterrupt(JNIEnv *env) {
    jthread current = nullptr;
    if (interruptMethod == nullptr || jvmti->GetCurrentThread(&current) != JVMTI_ERROR_NONE) {
        return;
    }
    const LocalRef<jthread> thread(env, current);
    const jclass virtuals = virtualThreadClass;
    if (virtuals != nullptr && env->IsInstanceOf(thread.get(), virtuals) == JNI_TRUE) {
        env->CallVoidMethod(thread.get(), interruptMethod);
    } else {
        env->CallNonvirtualVoidMethod(thread.get(), threadClass, interruptMethod);
    }
}

jclass globalClass(JNIEnv *env, const char *name) {
    const LocalRef<jclass> local(env, env->FindClass(name));
    env->ExceptionClear();
    return local ? static_cast<jclass>(env->NewGlobalRef(local.get())) : nullptr;
}

// ---------------------------------------------------------------- substitute JVM

jint refuse(const char *text) {
    traceError(text);
    return -1;
}

jint JNICALL refuseDestroy(JavaVM *) {
    return refuse("This method: DestroyJavaVM is NOT supported in AM Library, please do NOT use \n");
}
jint JNICALL refuseAttach(JavaVM *, void **, void *) {
    return refuse("This method: AttachCurrentThread is NOT supported in AM Library, please do NOT use \n");
}
jint JNICALL refuseDetach(JavaVM *) {
    return refuse("This method: DetachCurrentThread is NOT supported in AM Library, please do NOT use \n");
}
jint JNICALL refuseAttachDaemon(JavaVM *, void **, void *) {
    return refuse(
        "This method: AttachCurrentThreadAsDaemon is NOT supported in AM Library, please do NOT use \n");
}

jint getDiagnosticsEnv(void **penv) {
    JVMPIWrapper *wrapper = jvmpiWrapper;
    if (wrapper == nullptr || wrapper->realJvm == nullptr) {
        return -1;
    }
    return wrapper->realJvm->GetEnv(penv, JVMDG_VERSION) < 0 ? -1 : 0;
}

jint JNICALL getEnv(JavaVM *, void **penv, jint version) {
    switch (version) {
    case JVMPI_VERSION_1:
    case JVMPI_VERSION_1_1:
    case JVMPI_VERSION_1_2:
        if (penv == nullptr || jvmpiWrapper == nullptr) {
            return -1;
        }
        *penv = jvmpiWrapper.get();
        return 0;
    case JVMDG_VERSION:
        return getDiagnosticsEnv(penv);
    default:
        traceError(
            "No other interfaces but for JVMPI & JVMDG are supported in this JVMTI mode in AM Library \n");
        return -1;
    }
}

} // namespace

void freeJVMPIEvent(JVMPI_Event *event) {
    if (event != nullptr) {
        free(event->thread_name);
        free(event->group_name);
        delete event;
    }
}

JVMPIWrapper::~JVMPIWrapper() {
    phase = JVMTI_PHASE_DEAD;
    if (jvmpiWrapper == this) {
        deleteJVMWrapper();
        jvmpiWrapper = nullptr;
    }
}

bool JVMPIWrapper::monitorsAllowed() const {
    const uint32_t now = phase;
    if (now == JVMTI_PHASE_ONLOAD || now == JVMTI_PHASE_LIVE) {
        return true;
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "JVMPIWrapper::monitorsAllowed()",
             "Invalid JVMTI Phase, cannot process call: Current Phase: %d \n", now);
    return false;
}

void *JVMPIWrapper::RawMonitorCreate(const char *lock_name) {
    if (!monitorsAllowed() || jvmti == nullptr) {
        return nullptr;
    }
    if (lock_name == nullptr) {
        traceError("Invalid Monitor Name, Monitor name is NULL \n");
        return nullptr;
    }
    jrawMonitorID monitor = nullptr;
    const jvmtiError result = jvmti->CreateRawMonitor(lock_name, &monitor);
    AM_CHECK_JVMTI(result, "CreateRawMonitor");
    return result == JVMTI_ERROR_NONE ? monitor : nullptr;
}

void JVMPIWrapper::RawMonitorEnter(void *lock_id) {
    if (lock_id == nullptr) {
        traceError("NULL Monitor passed to RawMonitorEnter \n");
        return;
    }
    AM_CHECK_JVMTI(jvmti->RawMonitorEnter(asMonitor(lock_id)), "RawMonitorEnter");
    tellAcquired(lock_id);
}

void JVMPIWrapper::RawMonitorExit(void *lock_id) {
    if (lock_id == nullptr) {
        traceError("NULL Monitor passed to RawMonitorExit \n");
        return;
    }
    tellReleased(lock_id);
    AM_CHECK_JVMTI(jvmti->RawMonitorExit(asMonitor(lock_id)), "RawMonitorExit");
}

WaitEnd JVMPIWrapper::RawMonitorWait(void *lock_id, jlong ms) {
    if (lock_id == nullptr) {
        traceError("NULL Monitor passed to RawMonitorExit \n");
        return WaitEnd::Failed;
    }
    tellReleased(lock_id);
    const jvmtiError result = jvmti->RawMonitorWait(asMonitor(lock_id), ms);
    tellAcquired(lock_id);
    if (result == JVMTI_ERROR_INTERRUPT) {
        return WaitEnd::Interrupted;
    }
    AM_CHECK_JVMTI(result, "RawMonitorWait");
    return result == JVMTI_ERROR_NONE ? WaitEnd::Returned : WaitEnd::Failed;
}

void JVMPIWrapper::learnInterrupt(JNIEnv *env) {
    threadClass = globalClass(env, "java/lang/Thread");
    virtualThreadClass = globalClass(env, "java/lang/BaseVirtualThread");
    if (threadClass != nullptr) {
        interruptMethod = env->GetMethodID(threadClass, "interrupt", "()V");
        env->ExceptionClear();
    }
}

// Through Java, as the JVM itself does it, since it knows of virtual threads. An exception of the caller's is
// put aside meanwhile.
void JVMPIWrapper::interruptCurrentThread() {
    JNIEnv *env = nullptr;
    if (phase != JVMTI_PHASE_LIVE || realJvm == nullptr ||
        realJvm->GetEnv(reinterpret_cast<void **>(&env), JNI_VERSION_1_6) != JNI_OK) {
        return;
    }
    const LocalRef<jthrowable> pending(env, env->ExceptionOccurred());
    env->ExceptionClear();
    callInterrupt(env);
    env->ExceptionClear();
    if (pending) {
        env->Throw(pending.get());
    }
}

void JVMPIWrapper::RawMonitorNotifyAll(void *lock_id) {
    if (lock_id == nullptr) {
        traceError("NULL Monitor passed to  RawMonitorNotifyAll\n");
        return;
    }
    AM_CHECK_JVMTI(jvmti->RawMonitorNotifyAll(asMonitor(lock_id)), "RawMonitorNotifyAll");
}

void JVMPIWrapper::RawMonitorDestroy(void *lock_id) {
    if (!monitorsAllowed()) {
        return;
    }
    if (lock_id == nullptr) {
        traceError("NULL Monitor passed to  RawMonitorDestroy\n");
        return;
    }
    AM_CHECK_JVMTI(jvmti->DestroyRawMonitor(asMonitor(lock_id)), "DestroyRawMonitor");
}

namespace {

void tellOnceOfNoCpuClock() {
    static std::atomic<bool> told{false};
    if (!told.exchange(true)) {
        traceInfo("This JVM has no CPU clock for virtual threads: their events show a CPU time of 0");
    }
}

} // namespace

jlong JVMPIWrapper::GetCurrentThreadCpuTime() {
    const uint32_t now = phase;
    if (now != JVMTI_PHASE_START && now != JVMTI_PHASE_LIVE) {
        return 0;
    }
    jlong nanos = 0;
    const jvmtiError result = jvmti->GetCurrentThreadCpuTime(&nanos);
    if (static_cast<int>(result) == UNSUPPORTED_OPERATION) {
        tellOnceOfNoCpuClock();
        return 0;
    }
    AM_CHECK_JVMTI(result, "GetCurrentThreadCpuTime");
    return result == JVMTI_ERROR_NONE ? nanos : 0;
}

jint JVMPIWrapper::EnableEvent(jint event_type, void *) {
    return switchEvent(JVMTI_ENABLE, event_type);
}

jint JVMPIWrapper::DisableEvent(jint event_type, void *) {
    return switchEvent(JVMTI_DISABLE, event_type);
}

JVMPI_Event *JVMPIWrapper::mapThreadData2JVMPI_Event(JNIEnv *env, jthread thread, bool getInfo,
                                                     bool isStart) {
    JVMPI_Event *event = new (std::nothrow)
        JVMPI_Event{isStart ? JVMPI_EVENT_THREAD_START : JVMPI_EVENT_THREAD_END, env, nullptr, nullptr, env};
    if (event != nullptr && getInfo && jvmti != nullptr) {
        readThreadNames(thread, event);
    }
    return event;
}

void initializeJVMWrapper() {
    static JNIInvokeInterface_ table{};
    static JavaVM substitute{};
    table.DestroyJavaVM = refuseDestroy;
    table.AttachCurrentThread = refuseAttach;
    table.DetachCurrentThread = refuseDetach;
    table.GetEnv = getEnv;
    table.AttachCurrentThreadAsDaemon = refuseAttachDaemon;
    substitute.functions = &table;
    fakeJvm = &substitute;
}

void deleteJVMWrapper() {
    JVMPIWrapper *wrapper = jvmpiWrapper;
    if (wrapper != nullptr) {
        wrapper->phase = JVMTI_PHASE_DEAD;
    }
    fakeJvm = nullptr;
}
