#include "NetworkAgentMgr.h"

#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "PropertyMgr.h"
#include "jnihelp.h"
#include "platform.h"

#include <algorithm>
#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <new>

Relaxed<NetworkAgentMgr *> networkAgentMgr(nullptr);
AgentSlots<NetworkAgent> NetworkAgentMgr::agents_;

namespace {

constexpr int64_t LEAVING_MS = 200; // of threads that are not stuck
constexpr int CLIENT_BUCKETS = 11;

Relaxed<int32_t> nextAgentIndex(0);

int32_t configuredPoolSize() {
    return std::clamp(intProperty("networkagent.pool.size", 1), 0, MAX_POOL_SIZE);
}

void debugPointers(const char *signature, const char *format, ...) __attribute__((format(printf, 2, 3)));
void debugPointers(const char *signature, const char *format, ...) {
    if (LgkIsLoggable(naTracer, LGK_DEBUG_MID)) {
        char text[256];
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof(text), format, args);
        va_end(args);
        AM_TRACE(naTracer, LGK_DEBUG_MID, signature, "%s", text);
    }
}

} // namespace

NetworkAgentMgr::NetworkAgentMgr()
    : NamedObject("NetworkAgentMgr"), poolSize_(configuredPoolSize()),
      clientMap_(CLIENT_BUCKETS, false, true),
      statsTimer_(static_cast<uint32_t>(longProperty("log.statistics.frequency", 30000))) {
    networkAgentHost = this;
}

NetworkAgentMgr::~NetworkAgentMgr() {
    networkAgentHost = nullptr;
}

NetworkAgentMgr *NetworkAgentMgr::getInstance() {
    if (networkAgentMgr == nullptr) {
        networkAgentMgr = new (std::nothrow) NetworkAgentMgr;
    }
    return networkAgentMgr;
}

void NetworkAgentMgr::destroy() {
    NetworkAgentMgr *mgr = networkAgentMgr;
    if (mgr != nullptr) {
        mgr->stop();
        if (!awaitUntil(monotonicMicros() + LEAVING_MS * MICROS_PER_MS, [] { return agents_.isLeft(); })) {
            return; // who comes back asks it
        }
        networkAgentMgr = nullptr;
        delete mgr;
    }
}

// ---------------------------------------------------------------- start and stop

void NetworkAgentMgr::start() {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MIN, "NetworkAgentMgr::start()");
    createData();
    agents_.gate.open();
    MemoryMonitor::setNetworkPool(this);
    messageInfo(1066, "NetworkAgentManager started");
}

void NetworkAgentMgr::createData() {
    agents_.fill(poolSize_);
    defaultAgent_ = agents_.at(0);
}

void NetworkAgentMgr::stop() {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MIN, "NetworkAgentMgr::stop()");
    agents_.gate.close();
    MemoryMonitor::setNetworkPool(nullptr);
    const int64_t deadline = monotonicMicros() + NetworkAgent::STOP_PATIENCE_MS * MICROS_PER_MS;
    const bool ended = agents_.end(deadline, [](const NetworkAgent &agent) {
        AM_TRACE(naTracer, LGK_DEBUG_MID, "NetworkAgentMgr::stop()",
                 "NetworkAgent ID: %d was alive, waiting for 1 secs", agent.id());
    });
    const NetworkAgent *left = agents_.firstShared();
    if (!ended && left != nullptr) {
        traceWarn("NetworkAgent ID: %d has not ended and is left to itself", left->id());
    }
    agents_.drop(agents_.gate.isEmpty());
    defaultAgent_ = nullptr;
    clientMap_.clear();
    messageInfo(1067, "NetworkAgentManager stopped");
}

// ---------------------------------------------------------------- threads of the agents

int32_t NetworkAgentMgr::agentCount() {
    const CallGate::Pass pass(agents_.gate);
    return pass ? networkAgentMgr.get()->poolSize_ : configuredPoolSize();
}

// Logged for an id outside the pool, open or not.
bool NetworkAgentMgr::isValid(int id) {
    const int32_t count = agentCount();
    if (id >= 0 && id < count) {
        return true;
    }
    traceInfo("Trying to start Network agent with improper ID: %d [0-%d]", id, count - 1);
    return false;
}

void NetworkAgentMgr::startNetworkAgent(JNIEnv *env, int id) {
    if (isValid(id)) {
        agents_.with(id, [env](NetworkAgent &agent) { agent.runTCPagent(env); });
    }
}

void NetworkAgentMgr::stopNetworkAgent(JNIEnv *, int id) {
    if (isValid(id)) {
        agents_.with(id, [](NetworkAgent &agent) { agent.stopThread(); });
    }
}

void NetworkAgentMgr::notifyNetworkAgentStatus(NetworkAgent *agent, bool status) {
    if (agent == defaultAgent_) {
        ::notifyNetworkAgentStatus(status);
    }
}

// ---------------------------------------------------------------- clients

NetworkAgent *NetworkAgentMgr::getNextNetworkAgent() {
    const int32_t last = std::min(nextAgentIndex.get(), poolSize_ - 1);
    const int32_t index = agents_.firstFrom(last + 1, [](const NetworkAgent &) { return true; });
    if (index >= 0) {
        nextAgentIndex = index;
    }
    return agents_.at(index);
}

NetworkAgent *NetworkAgentMgr::getNetworkAgent(NetworkClient *client) {
    if (poolSize_ == 1 && defaultAgent_ != nullptr) {
        return defaultAgent_;
    }
    if (client->networkAgent != nullptr) {
        return client->networkAgent;
    }
    NetworkAgent *agent = clientMap_.get(client);
    return agent != nullptr ? agent : assignAgent(client);
}

NetworkAgent *NetworkAgentMgr::assignAgent(NetworkClient *client) {
    NetworkAgent *agent = getNextNetworkAgent();
    clientMap_.put(client, agent);
    client->networkAgent = agent;
    const NetworkAgent *stored = clientMap_.get(client);
    if (stored != agent) {
        debugPointers(
            "NetworkAgentMgr::getNetworkAgent( client )",
            "Unexpected error. Network agent retrieved from hash table is not the same as one added to it. "
            "Key:%p NetworkAgent Added:%p NetworkAgent retrieved:%p",
            static_cast<void *>(client), static_cast<void *>(agent), static_cast<const void *>(stored));
    }
    return agent;
}

bool NetworkAgentMgr::send(NetworkClient *client, const char *data, int size, const DropFigures &figures) {
    const CallGate::Pass pass(agents_.gate);
    if (!pass) {
        return false;
    }
    NetworkAgent *agent = getNetworkAgent(client);
    if (agent == nullptr) {
        debugPointers("NetworkAgentMgr::send( client, data, size )",
                      "Unable to find network agent for clientId %p\n", static_cast<void *>(client));
        return false;
    }
    return agent->sendData(data, size, figures);
}

bool NetworkAgentMgr::isConnected(NetworkClient *client) {
    const CallGate::Pass pass(agents_.gate);
    if (!pass) {
        return false;
    }
    const NetworkAgent *agent = getNetworkAgent(client);
    return agent != nullptr && agent->connected_;
}

bool NetworkAgentMgr::hasRoom(NetworkClient *client) {
    const CallGate::Pass pass(agents_.gate);
    NetworkAgent *agent = pass ? getNetworkAgent(client) : nullptr;
    return agent != nullptr && agent->hasRoom();
}

// ---------------------------------------------------------------- lost connections

void NetworkAgentMgr::registerConnectionInitListener(NetworkAgentMgrConnInitListener *listener) {
    if (listener != nullptr) {
        connListener_ = listener;
    }
}

void NetworkAgentMgr::unregisterConnectionInitListener(NetworkAgentMgrConnInitListener *) {
    connListener_ = nullptr;
}

// An agent behind the first connected one is not marked: the address still works.
void NetworkAgentMgr::notifyPSConnectStatus(NetworkAgent *, bool) {
    if (psDetailsNeeded_) {
        return;
    }
    for (int32_t id = 0; id < poolSize_; ++id) {
        if (NetworkAgent *agent = agents_.at(id)) {
            agent->askForAlive();
            if (agent->connected_) {
                return;
            }
        }
    }
    traceInfo("All NA sockets are down, requesting PS Host details");
    psDetailsNeeded_ = true;
}

// With one agent each loss counts; with more of them the moment when each has lost its connection.
void NetworkAgentMgr::notifyConnectionListeners(NetworkAgent *) {
    if (poolSize_ == 1) {
        callListener();
        return;
    }
    const ZykLockGuard guard(listenerLock_);
    if (!allSocketsDown()) {
        return;
    }
    AM_TRACE(naTracer, LGK_DEBUG_MID, "NetworkAgentMgr::notifyConnectionListeners( NetworkAgent *na )",
             "All NA sockets are down, requesting to resend class data to PS");
    traceInfo("Every NA sockets was down before,Requesting to resend class data to PS");
    callListener();
    agents_.forEach([](NetworkAgent &agent) { agent.countLossAsTold(); });
}

void NetworkAgentMgr::callListener() const {
    NetworkAgentMgrConnInitListener *listener = connListener_;
    if (listener != nullptr) {
        listener->notifySocketStatus();
    }
}

void NetworkAgentMgr::notifyRoom() const {
    NetworkAgentMgrConnInitListener *listener = connListener_;
    if (listener != nullptr) {
        listener->notifyRoom();
    }
}

bool NetworkAgentMgr::allSocketsDown() const {
    return agents_.firstFrom(0, [](const NetworkAgent &agent) { return !agent.socketDown_; }) < 0;
}

bool NetworkAgentMgr::setClassDataSent(bool sent) {
    const ZykLockGuard guard(listenerLock_);
    const bool before = classDataSent;
    classDataSent = sent;
    return before;
}

// ---------------------------------------------------------------- the pool and the memory monitor

int32_t NetworkAgentMgr::getTotalDataSize() {
    return agents_.sum([](const NetworkAgent &agent) { return agent.bytesQueued(); });
}

int32_t NetworkAgentMgr::getSleepTime() {
    const CallGate::Pass pass(agents_.gate);
    const NetworkAgent *first = pass ? agents_.at(0) : nullptr;
    return first != nullptr ? first->sleepTime_.get() : 0;
}

bool NetworkAgentMgr::setSleepTime(long time) {
    agents_.call([time](NetworkAgent &agent) { agent.setSleepTime(static_cast<int32_t>(time)); });
    return true;
}

bool NetworkAgentMgr::setThreadPriority(JNIEnv *env, int prio) {
    return callStaticVoidInt(env, PROBE_SYSTEM_CLASS, "setNAPoolPriority", prio);
}

void NetworkAgentMgr::logStatistics() {
    if (!statsTimer_.expired()) {
        return;
    }
    int32_t buffers = 0;
    int32_t bytes = 0;
    agents_.forEach([&](const NetworkAgent &agent) {
        const int32_t count = agent.queueCount();
        const int32_t size = agent.bytesQueued();
        traceInfo("NA ID: %d Number of Buffers: %d Total Buffer Size: %ld", agent.id(), count,
                  static_cast<long>(size));
        buffers += count;
        bytes += size;
    });
    traceInfo("## NAMgr: Statistics across all NA's: Number of Buffers: %d Total Buffer Size: %ld", buffers,
              static_cast<long>(bytes));
}
