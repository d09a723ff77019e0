#include "EvtAgentMgr.h"

#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "PropertyMgr.h"
#include "ThreadData.h"
#include "jnihelp.h"
#include "platform.h"

#include <algorithm>
#include <new>
#include <pthread.h>

Relaxed<EvtAgentMgr *> evtAgentMgr(nullptr);
Relaxed<EvtAgentMgr *> evtAgentMgrInstance(nullptr);

namespace {

constexpr int CALLS_POLL_MS = 5;

pthread_mutex_t birthLock = PTHREAD_MUTEX_INITIALIZER; // several natives may come first at once

// What `use` gives of the singleton; 0 without one.
template <typename Use>
auto withManager(Use use) {
    EvtAgentMgr *manager = EvtAgentMgr::create();
    return manager != nullptr ? use(*manager) : 0;
}

} // namespace

EvtAgentMgr *EvtAgentMgr::create() {
    pthread_mutex_lock(&birthLock);
    if (evtAgentMgr == nullptr) {
        evtAgentMgr = new (std::nothrow) EvtAgentMgr();
        evtAgentMgrInstance = evtAgentMgr.get();
    }
    EvtAgentMgr *manager = evtAgentMgr;
    pthread_mutex_unlock(&birthLock);
    return manager;
}

EvtAgentMgr::EvtAgentMgr()
    : NamedObject("EvtAgentMgr"), poolSize(eventPoolSize()),
      turboEnabled(boolProperty("dc.turbomode.enabled", true)),
      statsTimer(static_cast<uint32_t>(longProperty("log.statistics.frequency", 30000))),
      logStatistics(getStatisticsEnabled()) {}

EvtAgentMgr::~EvtAgentMgr() {
    stop();
    evtAgentMgr = nullptr;
    evtAgentMgrInstance = nullptr;
}

// ---------------------------------------------------------------- start and stop

void EvtAgentMgr::start() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, "EvtAgentMgr::start()");
    if (!createData()) {
        traceError("No memory for event agents, none is started");
        return;
    }
    gate.open();
    MemoryMonitor::setEventPool(this);
    ThreadMgr::setThreadTaker(this);
    NetworkAgentMgr *network = networkAgentMgr;
    if (network != nullptr) {
        network->registerConnectionInitListener(this);
    }
    messageInfo(1046, "EvtAgentManager started...");
}

bool EvtAgentMgr::createData() {
    for (int32_t id = 0; id < poolSize; ++id) {
        EventAgent *agent = new (std::nothrow) EventAgent(id);
        if (agent == nullptr) {
            break;
        }
        agent->prepareLocks();
        agents[id] = agent;
        agentCount = id + 1;
    }
    if (agentCount == 0) {
        return false;
    }
    leaderAgent = agents[0];
    const ZykLockGuard guard(roundRobinLock); // makes its monitor before threads race for it
    return true;
}

void EvtAgentMgr::stop() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, "EvtAgentMgr::stop()");
    gate.close();
    ThreadMgr::setThreadTaker(nullptr);
    NetworkAgentMgr *network = networkAgentMgr;
    if (network != nullptr) {
        network->unregisterConnectionInitListener(this);
    }
    if (!stopAgents()) {
        forgetAgents();
    }
    MemoryMonitor::setEventPool(nullptr);
    deleteData();
    messageInfo(1047, "EvtAgentManager stopped...");
}

// A thread may have been let in before the gate closed and start its agent only after it was told to stop: it
// is told again. False if somebody is still inside after all.
bool EvtAgentMgr::stopAgents() {
    const int64_t deadline = monotonicMicros() + EventAgent::STOP_PATIENCE_MS * MICROS_PER_MS;
    const auto rest = [deadline] { return (deadline - monotonicMicros()) / MICROS_PER_MS; };
    for (int32_t id = 0; id < agentCount; ++id) {
        agents[id]->requestStop(); // all at once, so that no end waits for the one before it
    }
    for (int32_t id = 0; id < agentCount; ++id) {
        agents[id]->stopThread(rest());
    }
    for (;;) {
        const int32_t living = firstAlive();
        if (living < 0 && gate.isEmpty()) {
            return true;
        }
        if (rest() <= 0) {
            return false;
        }
        if (living >= 0) {
            AM_TRACE(eaTracer, LGK_DEBUG_MID, "EvtAgentMgr::stop()",
                     "EventAgent ID: %d was alive, waiting for 1 secs", living);
            agents[living]->stopThread(rest());
        } else {
            thread_sleep(CALLS_POLL_MS);
        }
    }
}

// What somebody may still touch stays in memory, and in its place until the next start.
void EvtAgentMgr::forgetAgents() {
    for (int32_t id = 0; id < agentCount; ++id) {
        if (agents[id]->isAlive()) {
            AM_TRACE(eaTracer, LGK_DEBUG_MIN, "EvtAgentMgr::deleteData()",
                     "EventAgent ID: %d still alive after 10 sec wait therefore not deleting", id);
        }
        agents[id]->forget();
    }
    agentCount = 0;
}

void EvtAgentMgr::deleteData() {
    while (agentCount > 0) {
        delete agents[--agentCount];
    }
    roundRobinIndex = 0;
    leaderAlive = false;
    leaderResent = true;
    leaderAgent = nullptr;
}

bool EvtAgentMgr::isValid(int id, const char *signature, const char *badIdText) const {
    if (id >= 0 && id < poolSize) {
        return true;
    }
    AM_TRACE(eaTracer, LGK_DEBUG_MID, signature, badIdText, id, poolSize - 1);
    return false;
}

void EvtAgentMgr::startEvtAgent(JNIEnv *env, int id) {
    constexpr char SIGNATURE[] = "EvtAgentMgr::startEvtAgent( JNIEnv *env, int id )";
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, SIGNATURE);
    const CallGate::Pass pass(gate);
    if (isValid(id, SIGNATURE, "Trying to start event agent with improper ID: %d [0-%d]") && pass &&
        id < agentCount) {
        agents[id]->startThread(env);
    }
}

void EvtAgentMgr::stopEvtAgent(int id) {
    constexpr char SIGNATURE[] = "EvtAgentMgr::stopEvtAgent( int id )";
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, SIGNATURE);
    const CallGate::Pass pass(gate);
    if (isValid(id, SIGNATURE, "Trying to stop event agent with improper ID: %d [0-%d]") && pass &&
        id < agentCount) {
        agents[id]->stopThread();
    }
}

// ---------------------------------------------------------------- new threads

bool EvtAgentMgr::manageThreadData(ThreadData *thr) {
    const CallGate::Pass pass(gate);
    if (thr == nullptr || !pass || !leaderAlive) {
        return false;
    }
    return agents[getRoundRobinIndex()]->manageThreadData(thr);
}

int32_t EvtAgentMgr::getRoundRobinIndex() {
    if (poolSize == 1) {
        return 0;
    }
    int32_t index = 0;
    {
        const ZykLockGuard guard(roundRobinLock);
        index = roundRobinIndex;
        roundRobinIndex = (index + 1) % poolSize;
    }
    return isAliveAt(index) ? index : std::max(firstAlive(), 0);
}

bool EvtAgentMgr::isAliveAt(int32_t index) const {
    return index >= 0 && index < agentCount && agents[index]->isAlive();
}

int32_t EvtAgentMgr::firstAlive() const {
    for (int32_t index = 0; index < poolSize; ++index) {
        if (isAliveAt(index)) {
            return index;
        }
    }
    return -1;
}

// ---------------------------------------------------------------- news from the network and the agents

void EvtAgentMgr::notifySocketStatus() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, "EvtAgentMgr::notifySocketStatus()");
    const CallGate::Pass pass(gate);
    if (!pass) {
        return;
    }
    leaderResent = false;
    for (int32_t id = 0; id < agentCount; ++id) {
        if (poolSize == 1 || agents[id]->isAlive()) {
            agents[id]->notifyPSReconnect(isLeader(agents[id]));
        }
    }
}

void EvtAgentMgr::notifyEventAgentStatus(EventAgent *agent, bool status) {
    if (isLeader(agent) && status != leaderAlive) {
        leaderAlive = status;
        ::notifyEventAgentStatus(status);
    }
}

// ---------------------------------------------------------------- memory

void EvtAgentMgr::checkForMemory(EventAgent *agent) {
    MemoryMonitor *monitor = memoryMonitor;
    const CallGate::Pass pass(gate);
    if (!isLeader(agent) || !pass || monitor == nullptr) {
        return;
    }
    const bool stats = logStatistics && statsTimer.expired();
    const uint32_t memory = sumMemoryTaken();
    int32_t total = 0;
    for (int32_t id = 0; stats && id < agentCount; ++id) {
        const int32_t events = agents[id]->getNumberOfEvents();
        logAgent(*agents[id], events);
        total += events;
    }
    ThreadMgr *threads = threadMgr;
    if (threads != nullptr && agent->getEnv() != nullptr) {
        threads->endFinishedVirtualThreads(agent->getEnv());
    }
    // The other agents' sums are up to one pass old: the account has what their threads have queued since.
    monitor->checkAccount();
    if (stats) {
        traceInfo(
            "## EAMgr: Statistics across all EA's: Total EA events: %ld EA Event Memory: %ld Total Sink "
            "Memory: %ld",
            static_cast<long>(total), static_cast<long>(memory),
            static_cast<long>(monitor->getMemoryTaken()));
    }
    if (turboEnabled) {
        monitor->checkTurboMode(agent->getEnv());
    }
}

void EvtAgentMgr::logAgent(EventAgent &agent, int32_t events) const {
    traceInfo("EA id: %d MemoryUsed: %ld Events: %ld ", agent.getId(),
              static_cast<long>(agent.getMemoryTaken()), static_cast<long>(events));
}

// For callers inside the gate.
uint32_t EvtAgentMgr::sumMemoryTaken() {
    uint32_t sum = 0;
    for (int32_t id = 0; id < agentCount; ++id) {
        sum += agents[id]->getMemoryTaken();
    }
    return sum;
}

// Outside of start and stop the monitor may be about to go.
uint32_t EvtAgentMgr::getTotalBytesConsumed() {
    const Inside inside;
    const CallGate::Pass pass(gate);
    MemoryMonitor *monitor = memoryMonitor;
    if (!inside || !pass || monitor == nullptr) {
        return 0;
    }
    monitor->checkAccount();
    return monitor->getMemoryTaken();
}

int32_t EvtAgentMgr::getTotalDataSize() {
    const CallGate::Pass pass(gate);
    return pass ? static_cast<int32_t>(sumMemoryTaken()) : 0;
}

int32_t EvtAgentMgr::getNumberOfEvents() {
    const CallGate::Pass pass(gate);
    int32_t sum = 0;
    for (int32_t i = 0; pass && i < agentCount; ++i) {
        sum += agents[i]->getNumberOfEvents();
    }
    return sum;
}

void EvtAgentMgr::reduceMemory() {
    const CallGate::Pass pass(gate);
    for (int32_t i = 0; pass && i < agentCount; ++i) {
        agents[i]->reduceMemoryUsed();
    }
}

ThreadData *EvtAgentMgr::getSpecialThreadData() {
    const CallGate::Pass pass(gate);
    return pass ? agents[0]->getSpecialThreadData() : nullptr;
}

// ---------------------------------------------------------------- the pool for the memory monitor

int32_t EvtAgentMgr::getSleepTime() {
    const CallGate::Pass pass(gate);
    return pass ? agents[0]->getSleepTime() : 0;
}

bool EvtAgentMgr::setSleepTime(long time) {
    const CallGate::Pass pass(gate);
    for (int32_t i = 0; pass && i < agentCount; ++i) {
        agents[i]->setSleepTime(static_cast<int32_t>(time));
    }
    return true;
}

bool EvtAgentMgr::setThreadPriority(JNIEnv *env, int prio) {
    return callStaticVoidInt(env, PROBE_SYSTEM_CLASS, "setEAPoolPriority", prio);
}

// ---------------------------------------------------------------- natives

#define EVENT_AGENT(name) Java_com_qel_morvex_norak_dc_eventagent_NativeEventAgentImpl_##name

extern "C" {

// The size of the pool, at least 1: that many threads are to be started.
JNIEXPORT jint JNICALL EVENT_AGENT(getAgentCountNative)(JNIEnv *, jclass) {
    return withManager([](EvtAgentMgr &manager) { return manager.getPoolSize(); });
}

// The life of one agent, on the calling thread; returns when it was stopped, at once for a bad id.
JNIEXPORT void JNICALL EVENT_AGENT(startThreadNative)(JNIEnv *env, jclass, jint id) {
    withManager([env, id](EvtAgentMgr &manager) { return manager.startEvtAgent(env, id), 0; });
}

// Waits for the end of one agent; returns at once for a bad id.
JNIEXPORT void JNICALL EVENT_AGENT(stopThreadNative)(JNIEnv *, jclass, jint id) {
    withManager([id](EvtAgentMgr &manager) { return manager.stopEvtAgent(id), 0; });
}

// Events queued in all threads; 0 while stopped.
JNIEXPORT jint JNICALL EVENT_AGENT(getNumberOfEventsNative)(JNIEnv *, jclass) {
    return withManager([](EvtAgentMgr &manager) { return manager.getNumberOfEvents(); });
}

// Bytes that the collector holds by its own estimate; 0 before the memory monitor is up.
JNIEXPORT jint JNICALL EVENT_AGENT(getTotalBytesConsumedNative)(JNIEnv *, jclass) {
    return withManager(
        [](EvtAgentMgr &manager) { return static_cast<jint>(manager.getTotalBytesConsumed()); });
}

// Frees nothing: memory comes back only as queues are sent.
JNIEXPORT void JNICALL Java_com_qel_morvex_norak_dc_eventagent_reduceMemoryUsedNative(JNIEnv *, jclass) {
    withManager([](EvtAgentMgr &manager) { return manager.reduceMemory(), 0; });
}

} // extern "C"
