#include "ProbeMgr.h"

#include "EventUtils.h"
#include "EvtAgentMgr.h"
#include "Inside.h"
#include "JVMTIUtils.h"
#include "LockAgentMgr.h"
#include "MemoryMonitor.h"
#include "NetworkAgentMgr.h"
#include "PortalMethodMgr.h"
#include "ProbeContextPersister.h"
#include "ProbeLgKit.h"
#include "PropertyMgr.h"
#include "ThreadMgr.h"
#include "ZykLock.h"
#include "class.h"
#include "jnihelp.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <strings.h>
#include <utility>

Relaxed<ProbeMgr *> instance(nullptr);
Relaxed<ProbeMgr *> instanceCheck(nullptr);
JavaVM *jvm = nullptr;
Relaxed<JVMPIWrapper *> jvmpi(nullptr);
bool useMethodLocks = false;
int32_t methodHashCleanup = 150;
int32_t methodHashCleanupInterval = 5000;

namespace {

constexpr jint JVMPI_VERSION_1 = 0x10000001;
constexpr jint JVMPI_VERSION_1_1 = 0x10000002;
int32_t stopGraceMs = 10000; // read once: the settings may be gone when the probe is stopped

char *onLoadOptions = nullptr;
char bootClassName[256] = "";

StaticZykLock lifecycleLock;

bool saysYes(const char *key) {
    const char *value = stringProperty(key, nullptr);
    return value != nullptr && strcasecmp(value, "YES") == 0;
}

// A negative result leaves `jvmpi` as it is; no JVM counts as success and leaves it null.
jint askForEventInterface(jint version) {
    if (jvm == nullptr) {
        return 0;
    }
    void *found = nullptr;
    const jint result = jvm->GetEnv(&found, version);
    if (result >= 0) {
        jvmpi = static_cast<JVMPIWrapper *>(found);
    }
    return result;
}

bool eventInterfaceReady() {
    if (jvmpi != nullptr || (ProbeMgr::initializeJVMPI() && jvmpi != nullptr)) {
        return true;
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr", "Unable to initialize JVMPI");
    return false;
}

} // namespace

// ---------------------------------------------------------------- birth and death

ProbeMgr::ProbeMgr() : NamedObject("ProbeMgr::ProbeMgr()") {}

ProbeMgr::~ProbeMgr() {
    instance = nullptr;
    instanceCheck = nullptr;
}

ProbeMgr *ProbeMgr::initialize() {
    const ZykLockGuard guard(lifecycleLock);
    if (instance == nullptr) {
        instance = new (std::nothrow) ProbeMgr();
        instanceCheck = instance.get();
    }
    return instance;
}

void ProbeMgr::destroy() {
    delete instance.get();
    const ContextHold hold;
    delete std::exchange(contextPersister, nullptr);
}

void ProbeMgr::onLoadInitialize(JavaVM *givenJvm, const char *options) {
    jvm = givenJvm;
    free(onLoadOptions);
    onLoadOptions = dupString(options);
}

// ---------------------------------------------------------------- event interface

bool ProbeMgr::initializeJVMPI() {
    if (jvmpi != nullptr) {
        return true;
    }
    jint result = -1;
    if (getenv("am.use.jvmpi.v1") == nullptr) {
        result = askForEventInterface(JVMPI_VERSION_1_1);
        if (result < 0) {
            messageInfo(1015, "Failed during JVMPI_VERSION_1_1 interface initialization");
        }
    }
    if (result < 0 && askForEventInterface(JVMPI_VERSION_1) < 0) {
        printf("ProbeMgr::initializeJVMPI() Failed during interface initialization\n");
        messageFatal(1015, "Failed during JVMPI_VERSION_1 interface initialization");
        return false;
    }
    eventInterface = jvmpi.get();
    messageInfo(1016, "Initialized event interface successfully");
    return true;
}

void ProbeMgr::enableClassLoadHook() {
    if (eventInterfaceReady()) {
        jvmpi->EnableEvent(JVMPI_EVENT_CLASS_LOAD_HOOK, nullptr);
    }
}

void ProbeMgr::enableJVMInitDone() {
    if (eventInterfaceReady()) {
        jvmpi->EnableEvent(JVMPI_EVENT_JVM_INIT_DONE, nullptr);
    }
}

// ---------------------------------------------------------------- VM init

namespace {

void f_useMethodLocks() {
    useMethodLocks = saysYes("internal.use.method.monitors") &&
                     stringProperty("internal.use.method.monitors.disable", nullptr) == nullptr;
    methodHashCleanup = useMethodLocks ? -1 : intProperty("method.hash.cleanup", 150);
    methodHashCleanupInterval = intProperty("method.hash.cleanupinterval", 5000);
}

void f_disableNestedRequests() {
    disableNestedRequests = saysYes("internal.disable.nestedrequests");
}

void readSavedLevel() {
    const ContextHold hold;
    if (contextPersister == nullptr) {
        contextPersister = new (std::nothrow) ProbeContextPersister();
    }
    if (contextPersister == nullptr) {
        return;
    }
    using Ctx = ProbeContextPersister;
    contextPersister->ctx_direct(Ctx::CTX_READ);
    ProbeMgr::setProbeLevel(static_cast<uint32_t>(contextPersister->ctx_getEnum(Ctx::ctx_api_ProbeLevel)));
    ProbeMgr::setProbeLevelIsDefault(contextPersister->ctx_get(Ctx::ctx_api_ProbeLevelIsDefault));
    ProbeMgr::setSuppressL3Collection(contextPersister->ctx_get(Ctx::ctx_api_SuppressL3Collection));
    ProbeMgr::setSuppressGCEventCollection(contextPersister->ctx_get(Ctx::ctx_api_SuppressGCEventCollection));
}

void readBootClassName() {
    snprintf(bootClassName, sizeof(bootClassName), "%s",
             stringProperty("DSRV.bootclassname", "com.qel.morvex.lumbranex.instr.controller.BootIC"));
    std::replace(bootClassName, bootClassName + strlen(bootClassName), '.', '/');
}

} // namespace

bool ProbeMgr::onBootstrapInitialize(JNIEnv *env) {
    { const ZykLockGuard guard(lifecycleLock); } // makes its monitor before threads race for it
    const char *debug = getenv("AM_INIT_DEBUG");
    if (debug != nullptr && strcmp(debug, "1") == 0) {
        initDebug = true;
    }
    if (propertyMgr == nullptr) {
        new (std::nothrow) PropertyMgr();
    }
    if (propertyMgr == nullptr || !propertyMgr->initialize(env, onLoadOptions)) {
        disableAllEvents();
        relinquishCapabilities();
        return false;
    }
    f_useMethodLocks();
    setStatisticsEnabled(boolProperty("log.statistics", false));
    readSavedLevel();
    messageInfo(1080, "Using probe level %d", probeLevel.get());
    f_disableNestedRequests();
    readBootClassName();
    stopGraceMs = longProperty("internal.probe.stop.wait", stopGraceMs);
    return true;
}

// ---------------------------------------------------------------- service

bool ProbeMgr::csInitialize() {
    if (eventInterface == nullptr && !initializeJVMPI()) {
        AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::csInitialize( JNIEnv *env )",
                 "Failed to initialize event interface");
        return false;
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::csInitialize( JNIEnv *env )",
             "Event interface initialization successful");
    return initMethodLocks() && initClassTableLock() && initClassSequenceLock();
}

// False when memory is out: those that stand are kept for the next attempt.
bool ProbeMgr::createManagers() {
    LockAgentMgr::create();
    ProbeMgr::initialize();
    MemoryMonitor::create();
    NetworkAgentMgr::getInstance();
    EvtAgentMgr::create();
    ThreadMgr::create();
    resendHook = [](JNIEnv *env) {
        resendSamplingRates(env);
        if (PortalMethodMgr *methods = PortalMethodMgr::getInstance()) {
            methods->pushMethodsToPS(env);
        }
    };
    return lockAgentMgr != nullptr && instance != nullptr && memoryMonitor != nullptr &&
           networkAgentMgr != nullptr && evtAgentMgr != nullptr && threadMgr != nullptr;
}

bool ProbeMgr::customServiceStart(JNIEnv *) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::customServiceStart( JNIEnv *env )");
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::customServiceStart( JNIEnv *env )",
             "Native Custom Service initializing... ");
    {
        const ZykLockGuard guard(lifecycleLock);
        if (instanceCheck != nullptr) {
            return true;
        }
        if (!csInitialize()) {
            messageFatal(1002, "Custom Service initialization failed as JVMPI could not be initialized");
            return false;
        }
        if (!createManagers()) {
            delete instance.get(); // the end of the JVM would wait for its end, which nobody brings about
            return false;
        }
    }
    messageInfo(1001, "Native Custom Service initialized successfully");
    return true;
}

// The event agent manager stays: its natives may still be called.
void ProbeMgr::destroyManagers() {
    NetworkAgentMgr::destroy();
    ThreadMgr::destroy();
    MemoryMonitor::destroy();
    ProbeMgr::destroy();
    PropertyMgr::destroy();
    LockAgentMgr::destroy();
}

void ProbeMgr::customServiceShutDown(JNIEnv *env) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::customServiceShutDown( JNIEnv *env )");
    {
        const ZykLockGuard guard(lifecycleLock);
        if (instanceCheck == nullptr) {
            return;
        }
        const SharedPatience patience;
        probeStop(env);
        destroyManagers();
    }
    messageInfo(1003, "Native Custom Service shutdown completes...");
}

// ---------------------------------------------------------------- probe start

bool ProbeMgr::checkJvmShuttingDown(JNIEnv *env) {
    if (!jvmShuttingDown) {
        return false;
    }
    const LocalRef<jclass> exception(env, env->FindClass("java/lang/RuntimeException"));
    if (!clearException(env) && exception) {
        env->ThrowNew(exception.get(), "DC activity aborted: JVM is shutting down");
    }
    return true;
}

void ProbeMgr::startManagers() {
    lockAgentMgr->start();
    if (propertyMgr != nullptr) {
        propertyMgr->start();
    }
    memoryMonitor->start();
    networkAgentMgr->start();
    evtAgentMgr->start();
    threadMgr->start();
}

void ProbeMgr::probeStart(JNIEnv *env) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::probeStart( JNIEnv *env )");
    {
        const ZykLockGuard guard(lifecycleLock);
        if (!probeStopped || checkJvmShuttingDown(env) || !createManagers()) {
            return;
        }
        probeStopped = false;
        startManagers();
        start();
    }
    messageInfo(1004, "Native Probe started successfully...");
}

void ProbeMgr::start() {
    if (initProbe()) {
        messageInfo(1011, "ProbeManager Started successfully");
    } else {
        messageError(1012, "Failed to start ProbeManager. JVMPI initialization failed!");
    }
}

bool ProbeMgr::initProbe() {
    if (jvmpi == nullptr) {
        messageFatal(1013, "JVMPI was NOT initialized by Native Probe Start. Exiting");
        return false;
    }
    jvmpi->EnableEvent(JVMPI_EVENT_THREAD_START, nullptr);
    jvmpi->EnableEvent(JVMPI_EVENT_THREAD_END, nullptr);
    if (gcProcessor != nullptr && !suppressGCEventCollection) {
        jvmpi->EnableEvent(JVMPI_EVENT_GC_START, nullptr);
        jvmpi->EnableEvent(JVMPI_EVENT_GC_FINISH, nullptr);
    }
    instance->info("ProbeMgr::initProbe( JNIEnv *env )", __LINE__, "Enabled JVMPI events");
    resetClassSequence();
    if (probeLevel == 3) {
        turnMethodTrace(true);
    }
    return true;
}

// ---------------------------------------------------------------- probe stop

// The lock stays held during the grace time: a start that comes meanwhile waits for the stop to end.
void ProbeMgr::probeStop(JNIEnv *) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::probeStop( JNIEnv *env )");
    {
        const ZykLockGuard guard(lifecycleLock);
        if (probeStopped) {
            return;
        }
        beginStopping();
        traceInfo("Waiting for 10 secs");
        waitOnLocalLock(stopGraceMs);
        traceInfo("Waiting DONE 10 secs");
        stop();
        const SharedPatience patience;
        stopManagers();
        endStopping();
        probeStopped = true;
    }
    messageInfo(1005, "Native Probe stopped successfully...");
}

void ProbeMgr::stop() {
    for (const int event :
         {JVMPI_EVENT_THREAD_START, JVMPI_EVENT_THREAD_END, JVMPI_EVENT_GC_START, JVMPI_EVENT_GC_FINISH}) {
        if (jvmpi != nullptr) {
            jvmpi->DisableEvent(event, nullptr);
        }
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "ProbeMgr::stop( JNIEnv *env )", "Disabled JVMPI events.");
    if (probeLevel == 3) {
        turnMethodTrace(false);
    }
    messageInfo(1014, "Native ProbeMgr stopped successfully");
}

void ProbeMgr::stopManagers() {
    networkAgentMgr->stop();
    evtAgentMgr->stop();
    threadMgr->stop();
    memoryMonitor->stop();
    lockAgentMgr->stop();
}

// ---------------------------------------------------------------- facts

namespace {

template <size_t Room>
void setFact(char (&fact)[Room], const char *text) {
    if (instance != nullptr) {
        const std::lock_guard<PlainLock> guard(serverFactsLock);
        copyFact(fact, Room, text);
    }
}

} // namespace

void ProbeMgr::setAppServerVersion(const char *version) {
    setFact(serverFacts.appServerVersion, version);
}

void ProbeMgr::setComponentId(const char *id) {
    setFact(serverFacts.componentId, id);
}

void ProbeMgr::setAdminServerPort(int32_t port) {
    if (instance != nullptr) {
        const std::lock_guard<PlainLock> guard(serverFactsLock);
        serverFacts.adminServerPort = port;
    }
}

// ---------------------------------------------------------------- class filter

namespace {

// A null element stays a null entry, which ends the list early for its reader. Null when memory is out.
char **copyList(JNIEnv *env, jobjectArray array, const char *traceFormatText) {
    const jsize count = array != nullptr ? env->GetArrayLength(array) : 0;
    auto **list = static_cast<char **>(calloc(static_cast<size_t>(count) + 1, sizeof(char *)));
    for (jsize i = 0; list != nullptr && i < count; ++i) {
        const LocalRef<jstring> name(env, static_cast<jstring>(env->GetObjectArrayElement(array, i)));
        if (clearException(env) || !name) {
            break;
        }
        list[i] = jniStringCopy(env, name.get());
        if (list[i] == nullptr) {
            break;
        }
        AM_TRACE(ccTracer, LGK_DEBUG_MID, "ProbeMgr::setIncludeExcludeList()", traceFormatText,
                 static_cast<const char *>(list[i]));
    }
    return list;
}

} // namespace

void ProbeMgr::setIncludeExcludeList(JNIEnv *env, jobjectArray il, jobjectArray el) {
    char **include = copyList(env, il, "Include List: %s");
    char **exclude = copyList(env, el, "Exclude List: %s");
    replaceClassFilter(include, exclude);
    reapplyFilter();
}
