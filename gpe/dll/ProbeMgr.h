// The conductor: brings the managers up and down in their fixed order, owns the probe level with its
// suppress flags, and the file that keeps them over a restart. The hot flags themselves are in ProbeState.
// Service and probe start and stop run on Java threads under `lifecycleLock`, which is re-entrant.
#pragma once

#include "JVMPIWrapper.h"
#include "NamedObject.h"
#include "ProbeState.h"
#include "Relaxed.h"

#include <cstdint>
#include <jni.h>

class ProbeContextPersister;

class ProbeMgr : public virtual NamedObject {
public:
    ProbeMgr();
    ~ProbeMgr() override;

    // The singleton, made if needed; null when memory is out. `destroy` deletes it and the persister.
    static ProbeMgr *initialize();
    static void destroy();

    static void onLoadInitialize(JavaVM *jvm, const char *options);
    // Properties, logging, the saved level; on the VM init thread. False: no properties, a dormant agent.
    static bool onBootstrapInitialize(JNIEnv *env);
    // Obtains the event interface from the JVM that `onLoadInitialize` was given.
    static bool initializeJVMPI();
    static void enableClassLoadHook();
    static void enableJVMInitDone();

    // Builds the managers; nothing runs yet. True also if they stand already.
    static bool customServiceStart(JNIEnv *env);
    // Stops the probe and destroys the managers; VM death waits for this.
    static void customServiceShutDown(JNIEnv *env);

    // Starts the managers. Throws java.lang.RuntimeException into `env` while the JVM is shutting down.
    static void probeStart(JNIEnv *env);
    // Closes the gate, waits `internal.probe.stop.wait` milliseconds (10000) for what is in flight, stops the
    // managers. Nothing opens the gate again before the next start.
    static void probeStop(JNIEnv *env);

    // Throws and answers true while the JVM is shutting down.
    static bool checkJvmShuttingDown(JNIEnv *env);

    // Facts that the Java side gives; not taken while there is no singleton. A null or empty text changes
    // nothing; longer ones are cut.
    static void setAppServerVersion(const char *version);
    static void setComponentId(const char *id);
    static void setAdminServerPort(int32_t port);

    // Monitoring levels (1001 to 1003) are what Java sees, probe levels (1 to 3) what is stored; 0: invalid.
    static uint32_t convertMonitoringLevelToProbeLevel(uint32_t level);
    static uint32_t convertProbeLevelToMonitoringLevel(uint32_t level);
    // New level plus ten times the current one (13 is L1 to L3); 0 for an invalid new level.
    static uint32_t getProbeLevelTransitionType(uint32_t newLevel);

    static void setProbeLevel(uint32_t newLevel);
    static void setProbeLevelIsDefault(bool isDefault);
    static void setSuppressL3Collection(bool suppress);
    static void setSuppressGCEventCollection(bool suppress);

    // As the setters, and into the context file. False if nothing changed or the value is invalid.
    static bool updateProbeLevelContext(uint32_t level);
    static bool updateProbeLevelIsDefaultContext(bool isDefault);
    static bool updateSuppressL3CollectionContext(bool suppress);
    static bool updateSuppressGCEventCollectionContext(bool suppress);

    // The context file as Java drives it. The arrays have ctx_getElemCount() elements and are the caller's
    // (delete[]); null without a persister. `resetProbeContext` clears an earlier failure of the file, so
    // that it is tried again; false without a persister. The path is a heap copy for the caller to free, null
    // until a file was read.
    static int32_t *initProbeContext();
    static int32_t *synchInProbeContext();
    static bool synchOutProbeContext(const int32_t *ids, const int32_t *values, int count);
    static bool resetProbeContext();
    static char *copyContextFilePath();

    // Switches nothing: method events come through the instrumented Java side. It only tells why.
    static void turnMethodTrace(bool on);

    // Replaces the class filter. A null Java array yields an empty list. When memory is out, or an element
    // cannot be read, the list ends there.
    static void setIncludeExcludeList(JNIEnv *env, jobjectArray il, jobjectArray el);

private:
    static bool csInitialize();
    static bool createManagers();
    static void destroyManagers();
    static void startManagers();
    static void stopManagers();
    static void start();
    static bool initProbe();
    static void stop();
};

// The singleton; both pointers are set and nulled together. VM death polls the second.
extern Relaxed<ProbeMgr *> instance;
extern Relaxed<ProbeMgr *> instanceCheck;

// Null until VM init, and again once the service was shut down. To be touched only while a ContextHold lives.
extern ProbeContextPersister *contextPersister;

// While one lives, the persister is not deleted. Nests, and may be taken under any other lock of this module;
// nothing waits long behind it.
class ContextHold {
public:
    ContextHold();
    ~ContextHold();
    ContextHold(const ContextHold &) = delete;
    ContextHold &operator=(const ContextHold &) = delete;
};

extern JavaVM *jvm; // the substitute
extern Relaxed<JVMPIWrapper *> jvmpi;

extern bool useMethodLocks;
extern int32_t methodHashCleanup;
extern int32_t methodHashCleanupInterval;
