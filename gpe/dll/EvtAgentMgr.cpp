#include "EvtAgentMgr.h"

#include "Inside.h"
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

constexpr uint32_t SWEEP_MS = 1000; // where passes are hurried

pthread_mutex_t birthLock = PTHREAD_MUTEX_INITIALIZER; // several natives may come first at once

} // namespace

EvtAgentMgr *EvtAgentMgr::create() {
    pthread_mutex_lock(&birthLock);
    if (evtAgentMgr == nullptr) {
        evtAgentMgr = new (std::nothrow) EvtAgentMgr();
        evtAgentMgrInstance = evtAgentMgr.get();
        eventAgentHost = evtAgentMgr.get();
    }
    EvtAgentMgr *manager = evtAgentMgr;
    pthread_mutex_unlock(&birthLock);
    return manager;
}

EvtAgentMgr::EvtAgentMgr()
    : NamedObject("EvtAgentMgr"), poolSize(eventPoolSize()),
      turboEnabled(boolProperty("dc.turbomode.enabled", true)),
      statsTimer(static_cast<uint32_t>(longProperty("log.statistics.frequency", 30000))),
      sweepTimer(SWEEP_MS), logStatistics(getStatisticsEnabled()) {}

EvtAgentMgr::~EvtAgentMgr() {
    stop();
    evtAgentMgr = nullptr;
    evtAgentMgrInstance = nullptr;
    eventAgentHost = nullptr;
}

// ---------------------------------------------------------------- start and stop

void EvtAgentMgr::start() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, "EvtAgentMgr::start()");
    if (!createData()) {
        traceError("No memory for event agents, none is started");
        return;
    }
    agents.gate.open();
    MemoryMonitor::setEventPool(this);
    ThreadMgr::setThreadTaker(this);
    NetworkAgentMgr *network = networkAgentMgr;
    if (network != nullptr) {
        network->registerConnectionInitListener(this);
    }
    messageInfo(1046, "EvtAgentManager started...");
}

bool EvtAgentMgr::createData() {
    agents.fill(poolSize);
    if (agents.at(0) == nullptr) {
        agents.drop(true);
        return false;
    }
    agents.forEach([](EventAgent &agent) { agent.prepareLocks(); });
    leaderAgent = agents.at(0);
    const ZykLockGuard guard(roundRobinLock); // makes its monitor before threads race for it
    return true;
}

void EvtAgentMgr::stop() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, "EvtAgentMgr::stop()");
    agents.gate.close();
    ThreadMgr::setThreadTaker(nullptr);
    NetworkAgentMgr *network = networkAgentMgr;
    if (network != nullptr) {
        network->unregisterConnectionInitListener(this);
    }
    // A thread inside may be about to wake an agent.
    const bool nobodyInside = stopAgents() && awaitDeparture();
    MemoryMonitor::setEventPool(nullptr);
    deleteData(nobodyInside);
    messageInfo(1047, "EvtAgentManager stopped...");
}

// False if somebody is still inside after all.
bool EvtAgentMgr::stopAgents() {
    const int64_t deadline = monotonicMicros() + EventAgent::STOP_PATIENCE_MS * MICROS_PER_MS;
    return agents.end(deadline, [](const EventAgent &agent) {
        AM_TRACE(eaTracer, LGK_DEBUG_MID, "EvtAgentMgr::stop()",
                 "EventAgent ID: %d was alive, waiting for 1 secs", agent.getId());
    });
}

void EvtAgentMgr::deleteData(bool nobodyInside) {
    agents.forEach([](const EventAgent &agent) {
        if (agent.isAlive()) {
            AM_TRACE(eaTracer, LGK_DEBUG_MIN, "EvtAgentMgr::deleteData()",
                     "EventAgent ID: %d still alive after 10 sec wait therefore not deleting", agent.getId());
        }
    });
    agents.drop(nobodyInside);
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
    if (isValid(id, SIGNATURE, "Trying to start event agent with improper ID: %d [0-%d]")) {
        agents.with(id, [env](EventAgent &agent) { agent.startThread(env); });
    }
}

void EvtAgentMgr::stopEvtAgent(int id) {
    constexpr char SIGNATURE[] = "EvtAgentMgr::stopEvtAgent( int id )";
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, SIGNATURE);
    if (isValid(id, SIGNATURE, "Trying to stop event agent with improper ID: %d [0-%d]")) {
        agents.with(id, [](EventAgent &agent) { agent.stopThread(); });
    }
}

// ---------------------------------------------------------------- new threads

bool EvtAgentMgr::manageThreadData(ThreadData *thr) {
    const CallGate::Pass pass(agents.gate);
    if (thr == nullptr || !pass || !leaderAlive) {
        return false;
    }
    EventAgent *agent = agents.at(getRoundRobinIndex());
    return agent != nullptr && agent->manageThreadData(thr);
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
    const EventAgent *agent = agents.at(index);
    return agent != nullptr && agent->isAlive() ? index : std::max(firstAlive(), 0);
}

int32_t EvtAgentMgr::firstAlive() const {
    return agents.firstFrom(0, [](const EventAgent &agent) { return agent.isAlive(); });
}

// ---------------------------------------------------------------- news from the network and the agents

void EvtAgentMgr::notifySocketStatus() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, "EvtAgentMgr::notifySocketStatus()");
    const CallGate::Pass pass(agents.gate);
    if (!pass) {
        return;
    }
    leaderResent = false;
    agents.forEach([this](EventAgent &agent) {
        if (poolSize == 1 || agent.isAlive()) {
            agent.notifyPSReconnect(isLeader(&agent));
        }
    });
}

void EvtAgentMgr::notifyRoom() {
    agents.call([](EventAgent &agent) { agent.wakeUp(); });
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
    const CallGate::Pass pass(agents.gate);
    if (!isLeader(agent) || !pass || monitor == nullptr) {
        return;
    }
    const bool stats = logStatistics && statsTimer.expired();
    const uint32_t memory = sumMemoryTaken();
    int32_t total = 0;
    if (stats) {
        agents.forEach([&](EventAgent &each) {
            const int32_t events = each.getNumberOfEvents();
            logAgent(each, events);
            total += events;
        });
    }
    ThreadMgr *threads = threadMgr;
    const bool sweep = sweepTimer.expired() || !agent->isHurried();
    if (threads != nullptr && agent->getEnv() != nullptr && sweep) {
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
    agents.forEach([&sum](const EventAgent &agent) { sum += agent.getMemoryTaken(); });
    return sum;
}

// Outside of start and stop the monitor may be about to go.
uint32_t EvtAgentMgr::getTotalBytesConsumed() {
    const Inside inside;
    const CallGate::Pass pass(agents.gate);
    MemoryMonitor *monitor = memoryMonitor;
    if (!inside || !pass || monitor == nullptr) {
        return 0;
    }
    monitor->checkAccount();
    return monitor->getMemoryTaken();
}

int32_t EvtAgentMgr::getTotalDataSize() {
    return agents.sum([](const EventAgent &agent) { return static_cast<int32_t>(agent.getMemoryTaken()); });
}

int32_t EvtAgentMgr::getNumberOfEvents() {
    return agents.sum([](EventAgent &agent) { return agent.getNumberOfEvents(); });
}

void EvtAgentMgr::reduceMemory() {
    agents.call([](EventAgent &agent) { agent.reduceMemoryUsed(); });
}

ThreadData *EvtAgentMgr::getSpecialThreadData() {
    const CallGate::Pass pass(agents.gate);
    const EventAgent *leader = pass ? agents.at(0) : nullptr;
    return leader != nullptr ? leader->getSpecialThreadData() : nullptr;
}

// ---------------------------------------------------------------- the pool for the memory monitor

int32_t EvtAgentMgr::getSleepTime() {
    const CallGate::Pass pass(agents.gate);
    const EventAgent *leader = pass ? agents.at(0) : nullptr;
    return leader != nullptr ? leader->getSleepTime() : 0;
}

bool EvtAgentMgr::setSleepTime(long time) {
    agents.call([time](EventAgent &agent) { agent.setSleepTime(static_cast<int32_t>(time)); });
    return true;
}

bool EvtAgentMgr::setThreadPriority(JNIEnv *env, int prio) {
    return callStaticVoidInt(env, PROBE_SYSTEM_CLASS, "setEAPoolPriority", prio);
}
