// The pool of network agents: gives each client one agent for life, finds out where the Publish Server is,
// and asks for the initial data again when every connection was lost. One instance, `networkAgentMgr`.
// Clients may call at any time on any thread: outside of start and stop they are refused, and `stop` ends
// no agent while a call is inside. Static operations may be called with no instance, and while it goes.
#pragma once

#include "AgentSlots.h"
#include "LossAccount.h"
#include "MemoryMonitor.h"
#include "NamedObject.h"
#include "NetworkAgent.h"
#include "PeriodicTimer.h"
#include "PlainLock.h"
#include "Relaxed.h"
#include "ZykHashTable.h"
#include "ZykLock.h"

#include <cstdint>
#include <jni.h>

// Whoever sends packets. Its first call must come from its own thread. It lives no longer than the
// manager's time between start and the next start.
struct NetworkClient {
    NetworkAgent *networkAgent = nullptr; // filled by the manager, for a pool of more than one
};

// Told on a network agent's thread how its connection is. When connections were lost, the initial data have
// to go out again: in a larger pool that is told under a lock, and must not come back into
// `notifyConnectionListeners`.
class NetworkAgentMgrConnInitListener {
public:
    virtual void notifySocketStatus() = 0;
    virtual void notifyRoom() {} // packets are taken, for the first time or again

protected:
    ~NetworkAgentMgrConnInitListener() = default;
};

class NetworkAgentMgr : public virtual NamedObject, public NetworkAgentHost, public AgentPool {
public:
    static NetworkAgentMgr *getInstance(); // made on first use, by one thread
    static void destroy();                 // stops it before; it stays if a thread is stuck in an agent

    void start();
    void createData();
    // Returns when no agent runs any more and all of them are gone; agents whose threads have not left in
    // some seconds are forgotten: they end by themselves, should their threads come back from where they are
    // stuck.
    void stop();

    // Run, and end, the agent of that id. `startNetworkAgent` returns when the agent has stopped, the other
    // one also when that takes too long.
    static void startNetworkAgent(JNIEnv *env, int id);
    static void stopNetworkAgent(JNIEnv *env, int id);
    static int32_t agentCount(); // of the open pool, else as configured

    NetworkAgent *getNextNetworkAgent(); // null with an empty pool
    NetworkAgent *getNetworkAgent(NetworkClient *client);

    // Hands a copy of the packet to the client's agent, and what is lost with it; false if it is refused.
    // Never blocks on the network.
    bool send(NetworkClient *client, const char *data, int size, const DropFigures &figures = {});
    bool isConnected(NetworkClient *client);
    // Whether a packet would be taken; where it would not, `notifyRoom` follows once it is.
    bool hasRoom(NetworkClient *client);

    // Not owned. There is one listener: a new one replaces it, unregistering clears it whoever asks.
    void registerConnectionInitListener(NetworkAgentMgrConnInitListener *listener);
    void unregisterConnectionInitListener(NetworkAgentMgrConnInitListener *listener);

    // Called by the agents, on their threads.
    void notifyNetworkAgentStatus(NetworkAgent *agent, bool status) override;
    void notifyPSConnectStatus(NetworkAgent *agent, bool status) override;
    void notifyConnectionListeners(NetworkAgent *na) override;
    void notifyRoom() const override;
    void logStatistics() override;
    bool getPSDetailsFromKernel(JNIEnv *env, int nCntLog, NetworkAgent *na, PSDetails &details) override;
    // Takes an answer: it holds until no agent is connected any more.
    void setPSDetails(const char *host, int32_t port, int32_t sendBuffSize);

    // The pool as the memory monitor sees it: bytes queued in all agents, milliseconds of the first agent.
    int32_t getTotalDataSize() override;
    int32_t getSleepTime() override;
    bool setSleepTime(long time) override;
    bool setThreadPriority(JNIEnv *env, int prio) override;

    // Whether the class data went out once in the life of the process.
    bool isClassDataSent() const { return classDataSent; }
    bool setClassDataSent(bool sent) override;

    int32_t poolSize() const { return poolSize_; }

private:
    NetworkAgentMgr();
    ~NetworkAgentMgr() override;

    static bool isValid(int id);
    NetworkAgent *assignAgent(NetworkClient *client);
    void callListener() const;
    bool readDetails(PSDetails &details);
    void storeDetails(const PSDetails *details); // null: there is none
    bool allSocketsDown() const;
    void askKernel(JNIEnv *env, int nCntLog);
    void readLookupResult(JNIEnv *env, jclass lookup);

    static AgentSlots<NetworkAgent> agents_; // one for all, as callers may come while the manager goes
    const int32_t poolSize_;                 // 0 and more
    ZykHashTable<NetworkClient *, NetworkAgent *> clientMap_;
    Relaxed<NetworkAgentMgrConnInitListener *> connListener_{nullptr};
    Relaxed<NetworkAgent *> defaultAgent_{nullptr};
    PSDetails psDetails_; // the last answer, if there is one; both guarded by `detailsLock_`
    bool detailsKnown_ = false;
    PlainLock detailsLock_;
    Relaxed<bool> psDetailsNeeded_{true};
    ZykLock lookupLock_;
    PeriodicTimer statsTimer_;
    ZykLock listenerLock_; // guards the test for "all down" and `classDataSent`
    Relaxed<bool> classDataSent{false};
};

extern Relaxed<NetworkAgentMgr *> networkAgentMgr; // null while there is none
