#include "JVMTIAgent.h"

#include "Inside.h"
#include "InstrumentJNI.h"
#include "JVMTIUtils.h"
#include "JavaText.h"
#include "ProbeLgKit.h"
#include "ProbeMgr.h"
#include "PropertyMgr.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "VirtualThreads.h"
#include "config.h"
#include "platform.h"
#include "zykora.h"

#include <cstdio>
#include <cstring>
#include <new>

Relaxed<JVMTIAgent *> jvmtiAgent(nullptr);

namespace {

// A thread has its names from its start on; they never change.
void copyName(std::atomic<char *> &target, const char *name) {
    if (name == nullptr || target.load(std::memory_order_relaxed) != nullptr) {
        return;
    }
    char *copy = dupString(name);
    if (copy == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, "ThreadStartEventHandler( JVMPI_Event *event )",
                 "Failed to allocate memory");
        return;
    }
    target.store(copy, std::memory_order_release);
}

void ThreadStartEventHandler(const JVMPI_Event *event) {
    ThreadMgr *threads = threadMgr;
    ThreadData *thread = threads != nullptr ? threads->getThreadData(event->env_id) : nullptr;
    if (thread != nullptr) {
        copyName(thread->threadName, event->thread_name);
        copyName(thread->groupName, event->group_name);
    }
}

void ThreadEndEventHandler(const JVMPI_Event *event) {
    ThreadMgr *threads = threadMgr;
    if (threads != nullptr) {
        threads->endThread(event->env_id);
    }
}

// That mode gives the capability up, which is costly for the JVM.
void relinquishTaggingInEvexMode() {
    const char *mode = stringProperty("dc.operation.mode", nullptr);
    if (mode != nullptr && strcmp(mode, "evex") == 0) {
        jvmtiCapabilities given{};
        given.can_tag_objects = 1;
        AM_CHECK_JVMTI(jvmti->RelinquishCapabilities(&given), "RelinquishCapabilities");
    }
}

} // namespace

JVMTIAgent *JVMTIAgent::getInstance() {
    if (jvmtiAgent == nullptr) {
        JVMTIAgent *made = new (std::nothrow) JVMTIAgent();
        if (made != nullptr && made->wrapper == nullptr) {
            delete made;
            made = nullptr;
        }
        jvmtiAgent = made;
    }
    return jvmtiAgent;
}

JVMTIAgent::JVMTIAgent()
    : wrapper(new (std::nothrow) JVMPIWrapper(JVMTI_PHASE_ONLOAD)), phase(JVMTI_PHASE_ONLOAD) {
    jvmpiWrapper = wrapper;
    eventInterface = wrapper;
    initializeJVMWrapper();
    lock = new (std::nothrow) ZykLock(true);
}

JVMTIAgent::~JVMTIAgent() {
    phase = JVMTI_PHASE_DEAD;
}

void JVMTIAgent::setPhase(uint32_t value) {
    phase = value;
    wrapper->setPhase(value);
}

int JVMTIAgent::handleOnLoad(JavaVM *vm, const char *options, void *) {
    realJvm = vm;
    fflush(stdout);
    wrapper->setRealJvm(vm);
    ProbeMgr::onLoadInitialize(fakeJvm, options);
    uint32_t sec = 0;
    uint32_t usec = 0;
    getCurrentTime(&sec, &usec);
    agentLoadTimeMillis = static_cast<int64_t>(sec) * 1000 + usec / 1000;
    messageInfo(1081, "Native Library Build TIME : %s DATE: %s", __TIME__, __DATE__);
    processId = getProcessId();
    if (!ProbeMgr::initializeJVMPI()) {
        return -1;
    }
    if (getConfig("")) {
        ProbeMgr::enableClassLoadHook();
        ProbeMgr::enableJVMInitDone();
    }
    return 0;
}

void JVMTIAgent::handleClassLoadHook(JNIEnv *env, jobject loader, const char *name, jint class_data_len,
                                     const unsigned char *class_data, jint *new_class_data_len,
                                     unsigned char **new_class_data) {
    if (phase != JVMTI_PHASE_DEAD) {
        notifyClassLoadHookJVMTIEvent(env, loader, name, class_data_len, class_data, new_class_data_len,
                                      new_class_data);
    }
}

void JVMTIAgent::handleVMInit(jvmtiEnv *, JNIEnv *env, jthread) {
    learnVirtualThreads(env);
    JVMPIWrapper::learnInterrupt(env);
    chooseStringAccess(env);
    bootstrapAllowed = true;
    JVMPI_Event event{JVMPI_EVENT_JVM_INIT_DONE, env, nullptr, nullptr, nullptr};
    if (ProbeMgr::onBootstrapInitialize(env)) {
        if (!bootstrapDone) {
            registerBcmBootstrapNative(&event);
        }
        relinquishTaggingInEvexMode();
    }
    notifyJVMInitDone(&event);
}

void JVMTIAgent::handleThreadStart(jvmtiEnv *, JNIEnv *jni_env, jthread thread) {
    const Inside inside;
    if (!inside || probeDisabled) {
        return;
    }
    JVMPI_Event *event = wrapper->mapThreadData2JVMPI_Event(jni_env, thread, true, true);
    if (event != nullptr) {
        ThreadStartEventHandler(event);
    }
    freeJVMPIEvent(event);
}

void JVMTIAgent::handleThreadEnd(jvmtiEnv *, JNIEnv *jni_env, jthread thread) {
    const Inside inside;
    if (!inside || probeDisabled) {
        return;
    }
    JVMPI_Event *event = wrapper->mapThreadData2JVMPI_Event(jni_env, thread, false, false);
    if (event != nullptr) {
        ThreadEndEventHandler(event);
    }
    freeJVMPIEvent(event);
}
