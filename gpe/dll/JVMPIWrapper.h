// The event interface in the shape of the JVM's old profiler interface, carried out over JVMTI: raw
// monitors, event switching and the thread CPU clock of the whole agent go through the one instance.
// All operations are safe on any thread. It lives until the process ends.
#pragma once

#include "Relaxed.h"

#include <cstdint>
#include <jvmti.h>

// Event numbers of the old interface.
enum : int {
    JVMPI_EVENT_THREAD_START = 33,
    JVMPI_EVENT_THREAD_END = 34,
    JVMPI_EVENT_CLASS_LOAD_HOOK = 35,
    JVMPI_EVENT_JVM_INIT_DONE = 46,
    JVMPI_EVENT_GC_START = 60,
    JVMPI_EVENT_GC_FINISH = 61
};

// One event as its handlers see it. The names are owned heap copies and may be null.
struct JVMPI_Event {
    int event_type;
    JNIEnv *env_id;
    char *thread_name;
    char *group_name;
    JNIEnv *parent_env_id;
};

// Frees the event and its names; null is accepted.
void freeJVMPIEvent(JVMPI_Event *event);

enum class WaitEnd { Returned, Interrupted, Failed };

class JVMPIWrapper {
public:
    explicit JVMPIWrapper(uint32_t initialPhase) : phase(initialPhase) {}
    virtual ~JVMPIWrapper();

    // Raw monitors. Creation and destruction work in the phases onload and live only; creation gives null
    // elsewhere and on failure. A null monitor is a logged no-op.
    void *RawMonitorCreate(const char *lock_name);
    void RawMonitorEnter(void *lock_id);
    void RawMonitorExit(void *lock_id);
    // `ms` of 0 waits without a limit. An interrupt of the thread ends the wait, is used up by that, and is
    // no failure: whoever waits on gives it back afterwards.
    WaitEnd RawMonitorWait(void *lock_id, jlong ms);
    void interruptCurrentThread();
    static void learnInterrupt(JNIEnv *env); // at VM init; without it nothing is given back
    void RawMonitorNotifyAll(void *lock_id);
    void RawMonitorDestroy(void *lock_id);

    // Nanoseconds of the calling thread; 0 outside the phases start and live.
    jlong GetCurrentThreadCpuTime();

    // Switch the JVMTI event behind a number above; numbers without one do nothing. Always 0.
    jint EnableEvent(jint event_type, void *arg);
    jint DisableEvent(jint event_type, void *arg);

    // A new event of type thread start or end; with `getInfo` it carries the thread's and group's names.
    JVMPI_Event *mapThreadData2JVMPI_Event(JNIEnv *env, jthread thread, bool getInfo, bool isStart);

    // Of the real JVM, as its agent learns them.
    void setPhase(uint32_t now) { phase = now; }
    void setRealJvm(JavaVM *vm) { realJvm = vm; }

    Relaxed<uint32_t> phase; // a jvmtiPhase
    JavaVM *realJvm = nullptr;

private:
    bool monitorsAllowed() const;
};

extern Relaxed<JVMPIWrapper *> jvmpiWrapper;   // the one instance; null before the agent is built
extern Relaxed<JVMPIWrapper *> eventInterface; // what locks and clocks use; the same instance once set

// The substitute JVM: its `GetEnv` answers with the wrapper, every other operation refuses.
extern JavaVM *fakeJvm;
void initializeJVMWrapper();
void deleteJVMWrapper();
