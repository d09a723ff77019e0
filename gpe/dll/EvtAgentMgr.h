// The pool of event agents: gives each new thread to one of them, starts and stops them for the Java side,
// and learns from the network when connections were lost. Agent 0 is the leader: it checks memory for all and
// sends the initial data again, before the others may send. Any thread may call: outside of start and stop
// it is refused, and `stop` ends no agent while a call is inside.
#pragma once

#include "AgentSlots.h"
#include "EventAgent.h"
#include "MemoryMonitor.h"
#include "NamedObject.h"
#include "NetworkAgentMgr.h"
#include "PeriodicTimer.h"
#include "Relaxed.h"
#include "ZykLock.h"

#include <cstdint>
#include <jni.h>

class EvtAgentMgr : public virtual NamedObject,
                    public NetworkAgentMgrConnInitListener,
                    public EventAgentHost,
                    public AgentPool {
public:
    // The singleton; made on first use, by one thread. Null when memory is out.
    static EvtAgentMgr *create();
    EvtAgentMgr();
    ~EvtAgentMgr() override;

    // Without memory for the agents it stays closed.
    void start();
    // Returns when no agent runs any more, after 5 seconds at most: one that does not end by then is left to
    // itself. So are all, if a thread does not come out that may be about to hurry one.
    void stop();

    // Runs the agent on the calling thread: returns when it was stopped, at once if it runs already.
    void startEvtAgent(JNIEnv *env, int id);
    // Waits for its end, 5 seconds at most.
    void stopEvtAgent(int id);

    bool canTakeThreads() override { return agents.gate.isOpen() && leaderAlive; }
    bool manageThreadData(ThreadData *thr) override;
    int32_t getRoundRobinIndex(); // who gets the next thread: an index of the pool

    // On a network thread: connections were lost, the initial data are needed again.
    void notifySocketStatus() override;
    // On a network thread: packets are taken, for the first time or again.
    void notifyRoom() override;

    // On the agents' threads.
    bool isLeader(const EventAgent *agent) const { return agent == leaderAgent; }
    bool maySend(const EventAgent *agent) const override { return isLeader(agent) || leaderResent; }
    void setLeaderResent() override { leaderResent = true; }
    void checkForMemory(EventAgent *agent) override;
    void notifyEventAgentStatus(EventAgent *agent, bool status) override;

    int32_t getPoolSize() const { return poolSize; }
    int32_t getNumberOfEvents();
    // The memory monitor's total, checked against its limit just now; 0 without a monitor.
    uint32_t getTotalBytesConsumed();
    void reduceMemory();
    // The leader's own queue, for events without a thread; null while there is none.
    ThreadData *getSpecialThreadData();

    // The pool as the memory monitor sees it: bytes queued, milliseconds.
    int32_t getTotalDataSize() override;
    int32_t getSleepTime() override;
    bool setSleepTime(long time) override;
    bool setThreadPriority(JNIEnv *env, int prio) override;

private:
    bool createData();
    bool stopAgents();
    void deleteData(bool nobodyInside);
    bool isValid(int id, const char *signature, const char *badIdText) const;
    int32_t firstAlive() const; // -1 if there is none
    uint32_t sumMemoryTaken();
    void logAgent(EventAgent &agent, int32_t events) const;

    const int32_t poolSize;
    AgentSlots<EventAgent> agents;
    int32_t roundRobinIndex = 0; // guarded by `roundRobinLock`
    Relaxed<bool> leaderAlive{false};
    ZykLock roundRobinLock;
    Relaxed<bool> leaderResent{true};           // the initial data are out
    Relaxed<EventAgent *> leaderAgent{nullptr}; // the first of `agents`
    const bool turboEnabled;
    PeriodicTimer statsTimer; // asked by the leader only, as the next
    PeriodicTimer sweepTimer;
    const bool logStatistics;
};

// The one instance, null until made. Both always hold the same value.
extern Relaxed<EvtAgentMgr *> evtAgentMgr;
extern Relaxed<EvtAgentMgr *> evtAgentMgrInstance;
