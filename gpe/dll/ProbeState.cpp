#include "ProbeState.h"

#include <cstring>
#include <mutex>

Relaxed<bool> dcDisabledOption(false);
Relaxed<bool> vmDeadSeen(false);
Relaxed<bool> jvmShuttingDown(false);
Relaxed<bool> heapDumpEnabled(true);
Relaxed<bool> initDebug(false);
int processId = 0;
int64_t agentLoadTimeMillis = 0;
JavaVM *realJvm = nullptr;

Relaxed<bool> probeDisabled(true);
Relaxed<bool> probeStopped(true);
Relaxed<bool> notAccepting(false);
Relaxed<bool> eventAgentReady(false);
Relaxed<bool> networkAgentReady(false);
Relaxed<bool> restartOnToFromL1Flag(false);

Relaxed<uint32_t> probeLevel(0);
Relaxed<bool> probeLevelIsDefault(false);
Relaxed<bool> suppressL3Collection(false);
Relaxed<bool> suppressGCEventCollection(false);
Relaxed<bool> disableNestedRequests(false);

ServerFacts serverFacts;
PlainLock serverFactsLock;

Relaxed<bool (*)(JNIEnv *)> disableToolkitHook(nullptr);

namespace {

// Both agents may report at once: without the lock each could miss what the other stored.
PlainLock readinessLock;
bool stopping = false; // guarded by it

void storeReadiness(Relaxed<bool> &own, const Relaxed<bool> &other, bool ready) {
    const std::lock_guard<PlainLock> guard(readinessLock);
    if (own == ready) {
        return;
    }
    own = ready;
    if (ready && other && !stopping) {
        probeDisabled = false;
    }
}

void setStopping(bool begins) {
    const std::lock_guard<PlainLock> guard(readinessLock);
    stopping = begins;
    probeDisabled = true;
    if (!begins) {
        eventAgentReady = false;
        networkAgentReady = false;
    }
}

} // namespace

void notifyEventAgentStatus(bool ready) {
    storeReadiness(eventAgentReady, networkAgentReady, ready);
}

void notifyNetworkAgentStatus(bool ready) {
    storeReadiness(networkAgentReady, eventAgentReady, ready);
}

void beginStopping() {
    setStopping(true);
}

void endStopping() {
    setStopping(false);
}

ServerFacts readServerFacts() {
    const std::lock_guard<PlainLock> guard(serverFactsLock);
    return serverFacts;
}

void copyFact(char *target, size_t room, const char *text) {
    if (text == nullptr || *text == '\0') {
        return;
    }
    strncpy(target, text, room - 1);
    target[room - 1] = '\0';
}
