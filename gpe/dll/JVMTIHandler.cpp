// The skin towards the JVM: the exported entry points, the choice whether the agent runs at all, the JVMTI
// environment with its capabilities and callbacks, and one handler per JVM event. No property and no logger
// exist before VM init: messages of start-up go to the console with the prefix "##".
#include "GCNotificator.h"
#include "Inside.h"
#include "JVMTIAgent.h"
#include "JVMTIUtils.h"
#include "Pause.h"
#include "ProbeMgr.h"
#include "ProbeState.h"
#include "cmdline.h"
#include "platform.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace {

constexpr jint JVMTI_WANTED = 0x30010166; // 1.1.102
constexpr jint CALLBACK_ENTRIES = 35;     // events 50 to 84
constexpr int64_t DEATH_PATIENCE_MS = 60000;
constexpr int64_t DEATH_STEP_MS = 1000;
constexpr int DEBUG_SLEEP_MS = 30000;

jrawMonitorID jvmtiGlobalLock = nullptr; // around the whole of VM init and the end of VM death

class GlobalLockGuard {
public:
    GlobalLockGuard() {
        if (jvmtiGlobalLock != nullptr) {
            AM_CHECK_JVMTI(jvmti->RawMonitorEnter(jvmtiGlobalLock), "RawMonitorEnter");
        }
    }
    ~GlobalLockGuard() {
        if (jvmtiGlobalLock != nullptr) {
            AM_CHECK_JVMTI(jvmti->RawMonitorExit(jvmtiGlobalLock), "RawMonitorExit");
        }
    }
    GlobalLockGuard(const GlobalLockGuard &) = delete;
    GlobalLockGuard &operator=(const GlobalLockGuard &) = delete;
};

// ---------------------------------------------------------------- JVM events

JVMTIAgent *activeAgent() {
    return dcDisabledOption || vmDeadSeen ? nullptr : jvmtiAgent.get();
}

// The one thing that "disableDC" still does: events flow into handlers that ignore them.
// A command line that names the library twice has two environments: the last one counts.
void JNICALL vmInitHandler(jvmtiEnv *jvmti_env, JNIEnv *env, jthread thread) {
    if (jvmti_env != jvmti) {
        return;
    }
    if (dcDisabledOption) {
        enableThreadAndClassEvents();
        return;
    }
    const GlobalLockGuard guard;
    JVMTIAgent *agent = activeAgent(); // only now: the death of the JVM declares it dead under the lock
    if (agent == nullptr) {
        return;
    }
    agent->setPhase(JVMTI_PHASE_LIVE);
    agent->handleVMInit(jvmti_env, env, thread);
}

// The Java side's shutdown destroys the probe manager; nothing wakes this pause.
void waitForProbeMgr() {
    if (instanceCheck == nullptr) {
        return;
    }
    Pause pause;
    const int64_t deadline = monotonicMicros() + DEATH_PATIENCE_MS * MICROS_PER_MS;
    while (instanceCheck != nullptr && monotonicMicros() < deadline) {
        pause.sleep(DEATH_STEP_MS);
    }
    if (instanceCheck != nullptr) {
        fputs("WARNING: Probe Manager is still alive!\n", stderr);
    }
}

void JNICALL vmDeathHandler(jvmtiEnv *, JNIEnv *) {
    if (dcDisabledOption) {
        return;
    }
    jvmShuttingDown = true;
    waitForProbeMgr();
    {
        const GlobalLockGuard guard;
        JVMTIAgent *agent = jvmtiAgent;
        if (agent != nullptr) {
            agent->setPhase(JVMTI_PHASE_DEAD);
        }
        vmDeadSeen = true;
    }
    retire(jvmtiAgent);
}

void JNICALL jvmtiEventThreadStartHandler(jvmtiEnv *jvmti_env, JNIEnv *jni_env, jthread thread) {
    const Inside inside;
    if (JVMTIAgent *agent = inside ? activeAgent() : nullptr) {
        agent->handleThreadStart(jvmti_env, jni_env, thread);
    }
}

void JNICALL jvmtiEventThreadEndHandler(jvmtiEnv *jvmti_env, JNIEnv *jni_env, jthread thread) {
    const Inside inside;
    if (JVMTIAgent *agent = inside ? activeAgent() : nullptr) {
        agent->handleThreadEnd(jvmti_env, jni_env, thread);
    }
}

void JNICALL jvmtiEventClassFileLoadHookHandler(jvmtiEnv *, JNIEnv *jni_env, jclass, jobject loader,
                                                const char *name, jobject, jint class_data_len,
                                                const unsigned char *class_data, jint *new_class_data_len,
                                                unsigned char **new_class_data) {
    const Inside inside;
    if (JVMTIAgent *agent = inside ? activeAgent() : nullptr) {
        agent->handleClassLoadHook(jni_env, loader, name, class_data_len, class_data, new_class_data_len,
                                   new_class_data);
    }
}

// The start is told whatever the state of the probe, the finish only while it collects.
void JNICALL gcStartHandler(jvmtiEnv *) {
    if (activeAgent() != nullptr && gcProcessor != nullptr) {
        gcProcessor->gcStart();
    }
}

void JNICALL gcFinishHandler(jvmtiEnv *) {
    if (activeAgent() != nullptr && gcProcessor != nullptr && !probeDisabled) {
        gcProcessor->gcFinish();
    }
}

// ---------------------------------------------------------------- set-up of JVMTI

void readHeapDumpSwitch() {
    const char *value = getenv("AM_HEAPDUMP");
    if (value != nullptr && (strcmp(value, "false") == 0 || strcmp(value, "0") == 0)) {
        heapDumpEnabled = false;
        printf("## Heap dump is disabled.\n");
    }
}

// Of those that are not to be had together each is asked for by itself: one that the JVM refuses takes none
// of the others away.
void addCapabilities(const jvmtiCapabilities &wanted) {
    const jvmtiError result = jvmti->AddCapabilities(&wanted);
    AM_CHECK_JVMTI(result, "AddCapabilities");
    unsigned char bits[sizeof(wanted)];
    memcpy(bits, &wanted, sizeof(bits));
    for (size_t bit = 0; result != JVMTI_ERROR_NONE && bit < sizeof(bits) * 8; ++bit) {
        unsigned char one[sizeof(bits)] = {};
        one[bit / 8] = static_cast<unsigned char>(bits[bit / 8] & (1U << bit % 8));
        jvmtiCapabilities single{};
        memcpy(&single, one, sizeof(single));
        if (one[bit / 8] != 0) {
            jvmti->AddCapabilities(&single);
        }
    }
}

void initCapabilities() {
    jvmtiCapabilities wanted{};
    AM_CHECK_JVMTI(jvmti->GetCapabilities(&wanted), "GetCapabilities");
    wanted.can_generate_all_class_hook_events = 1;
    wanted.can_get_current_thread_cpu_time = 1;
    if (gcProcessor != nullptr) {
        wanted.can_generate_garbage_collection_events = 1;
    }
    readHeapDumpSwitch();
    if (heapDumpEnabled) {
        wanted.can_tag_objects = 1;
    }
    addCapabilities(wanted);
}

void initEventCallbacks() {
    jvmtiEventCallbacks callbacks{};
    callbacks.VMInit = vmInitHandler;
    callbacks.VMDeath = vmDeathHandler;
    callbacks.ThreadStart = jvmtiEventThreadStartHandler;
    callbacks.ThreadEnd = jvmtiEventThreadEndHandler;
    callbacks.ClassFileLoadHook = jvmtiEventClassFileLoadHookHandler;
    if (gcProcessor != nullptr) {
        callbacks.GarbageCollectionStart = gcStartHandler;
        callbacks.GarbageCollectionFinish = gcFinishHandler;
    }
    AM_CHECK_JVMTI(jvmti->SetEventCallbacks(&callbacks, CALLBACK_ENTRIES * static_cast<jint>(sizeof(void *))),
                   "SetEventCallbacks");
    setEventMode(JVMTI_ENABLE, JVMTI_EVENT_VM_INIT);
    setEventMode(JVMTI_ENABLE, JVMTI_EVENT_VM_DEATH);
}

// ---------------------------------------------------------------- switches

bool disabledByEnvironment() {
    const char *enabled = getenv("AM_DC_ENABLED");
    return enabled != nullptr && strcasecmp(enabled, "FALSE") == 0;
}

// The first argument that is long enough to hold "false" decides; shorter ones are passed over.
bool disabledByCommandLine() {
    constexpr char prefix[] = "-DNORAK_DC_ENABLED=";
    constexpr size_t prefixLength = sizeof(prefix) - 1;
    for (int i = 0; i < commandLineArgCount; ++i) {
        const char *argument = commandLineArgs[i];
        if (strlen(argument) >= prefixLength + 5 && strncmp(argument, prefix, prefixLength) == 0) {
            return strcasecmp(argument + prefixLength, "false") == 0;
        }
    }
    return false;
}

void handleDebugOption(const char *&text) {
    const char *rest = text;
    if (takeOptionWord(rest, "am.debug=on")) {
        printf("## Sleeping for 30 seconds \n");
        fflush(stdout);
        thread_sleep(DEBUG_SLEEP_MS);
        text = rest;
    }
}

bool obtainJvmti(JavaVM *vm) {
    jvmti = nullptr;
    if (vm == nullptr) {
        fputs("## ERROR: JVM Pointer is NULL, cannot proceed. Please check the JDK install \n", stderr);
        return false;
    }
    const jint result = vm->GetEnv(reinterpret_cast<void **>(&jvmti), JVMTI_WANTED);
    if (result != JNI_OK || jvmti == nullptr) {
        fprintf(stderr, "## ERROR: Unable to create jvmtiEnv, GetEnv failed, Error No: %d \n", result);
        return false;
    }
    return true;
}

// Out of memory the server comes up without a collector.
jint loadAgent(JavaVM *vm, const char *text, void *reserved) {
    JVMTIAgent *agent = JVMTIAgent::getInstance();
    if (agent == nullptr) {
        fputs("## Could not initialize JVMTIAgent \n", stderr);
        return 0; // memory is out: without an agent the collector stays off, and the JVM starts
    }
    if (agent->handleOnLoad(vm, text, reserved) != 0) {
        fputs("## Failed when processing handleOnLoad, check logs for further information \n", stderr);
        return -1;
    }
    agent->setPhase(JVMTI_PHASE_PRIMORDIAL);
    return 0;
}

} // namespace

extern "C" {

// 0 also where the agent has chosen not to run or has no memory; -1 stops the JVM. `options` is free text
// that is searched for words; what remains of it names the runtime directory.
JNIEXPORT jint JNICALL Agent_OnLoad(JavaVM *vm, char *options, void *reserved) {
    if (disabledByEnvironment()) {
        return 0;
    }
    const char *text = options != nullptr ? options : "";
    dcDisabledOption = false;
    handleDebugOption(text);
    getCommandLineArgs();
    if (disabledByCommandLine()) {
        return 0;
    }
    if (takeOptionWord(text, "disableDC")) {
        dcDisabledOption = true;
    }
    if (!obtainJvmti(vm)) {
        return -1;
    }
    AM_CHECK_JVMTI(jvmti->CreateRawMonitor("AM_TI_GB_LOCK", &jvmtiGlobalLock), "CreateRawMonitor");
    AM_CHECK_JVMTI(createGCNotificatorMonitor(), "CreateRawMonitor");
    initCapabilities();
    initEventCallbacks();
    return dcDisabledOption ? 0 : loadAgent(vm, text, reserved);
}

// All shutdown work happens in VM death.
JNIEXPORT void JNICALL Agent_OnUnload(JavaVM *) {}

} // extern "C"
