// The words that every thread of the agent reads without a lock, and the facts about the server.
// Nothing here depends on the JVM or on a manager, so that every module may include it.
#pragma once

#include "PlainLock.h"
#include "Relaxed.h"

#include <cstdint>
#include <jni.h>

// Life of the agent and of the JVM.
extern Relaxed<bool> dcDisabledOption; // "disableDC": JVMTI is set up, no handler acts
extern Relaxed<bool> vmDeadSeen;       // set inside VM death; handlers return at once from then on
extern Relaxed<bool> jvmShuttingDown;  // set as the first act of VM death; the probe no longer starts
extern Relaxed<bool> heapDumpEnabled;
extern Relaxed<bool> initDebug; // "##" lines during start-up
extern int processId;
extern int64_t agentLoadTimeMillis; // wall clock at load, milliseconds since the epoch
extern JavaVM *realJvm;

// The data path. `probeDisabled` is the master gate: nearly every native tests it first.
extern Relaxed<bool> probeDisabled;
extern Relaxed<bool> probeStopped;
extern Relaxed<bool> notAccepting; // the memory limit is reached: new data is refused
extern Relaxed<bool> eventAgentReady;
extern Relaxed<bool> networkAgentReady;
extern Relaxed<bool> restartOnToFromL1Flag;

// What to collect. Level 0 is "not read yet", 1 requests, 2 components, 3 methods.
extern Relaxed<uint32_t> probeLevel;
extern Relaxed<bool> probeLevelIsDefault;
extern Relaxed<bool> suppressL3Collection;
extern Relaxed<bool> suppressGCEventCollection;
extern Relaxed<bool> disableNestedRequests;

// The server as the initial records describe it.
struct ServerFacts {
    char nodeName[256] = "";
    char appServerName[256] = "";
    char profileName[256] = "";
    char appServerVersion[100] = "0.0.0";
    char componentId[256] = "";
    int32_t adminServerPort = 0;
};
extern ServerFacts serverFacts;
extern PlainLock serverFactsLock; // for changes once Java code runs; readers take a copy
ServerFacts readServerFacts();

// The gate opens when the first event agent and the first network agent have both reported ready.
// Each acts on a change of its own flag only. While the probe is being stopped the gate stays closed, whoever
// reports.
void notifyEventAgentStatus(bool ready);
void notifyNetworkAgentStatus(bool ready);
// Around a stop of the probe: closes the gate, and leaves it closed with both agents counting as not ready.
void beginStopping();
void endStopping();

// Switches the Java half off; set by the bootstrap, which lies above the modules that need it.
// Null until then. The result tells whether the Java half answered.
extern Relaxed<bool (*)(JNIEnv *)> disableToolkitHook;

// Copies at most `room - 1` bytes and terminates. A null or empty text changes nothing.
void copyFact(char *target, size_t room, const char *text);
