// The consumer side of the queues: visits the threads assigned to it, lets their events write themselves into
// one packet buffer, and hands the packet to the network. It owns what it has popped, the accounts of what
// was consumed, and every thread that has ended. One Java thread is the agent, from `startThread` to its
// return; operations marked "any thread" may be called beside it. When a queue is too long, or the Publish
// Server is away, the oldest events go; an event larger than a packet goes with an error line.
#pragma once

#include "AgentSlots.h"
#include "LossAccount.h"
#include "NamedObject.h"
#include "NetworkAgentMgr.h"
#include "Pause.h"
#include "Relaxed.h"
#include "ThreadMgr.h"
#include "ThreadRound.h"
#include "ZykList.h"

#include <atomic>
#include <cstdint>
#include <jni.h>
#include <memory>

class Event;
class EventAgent;
class EventQueue;
class ProtocolVisitor;
class ThreadData;

// What an agent needs of its pool, on its own thread.
class EventAgentHost : public ThreadTaker {
public:
    virtual void notifyEventAgentStatus(EventAgent *agent, bool status) = 0;
    virtual void checkForMemory(EventAgent *agent) = 0;
    virtual bool maySend(const EventAgent *agent) const = 0;
    virtual void setLeaderResent() = 0;

protected:
    ~EventAgentHost() = default;
};

// The pool; null while there is none.
extern Relaxed<EventAgentHost *> eventAgentHost;

class EventAgent : public virtual NamedObject, public NetworkClient, public SharedAgent {
public:
    // Reads its properties; a packet size or a sleep time that cannot be worked with becomes the default.
    explicit EventAgent(int id);
    ~EventAgent() override;

    // The agent's life on the calling thread; returns when it was stopped, at once if a thread is inside
    // already.
    void startThread(JNIEnv *env);

    static constexpr int64_t STOP_PATIENCE_MS = 5000;

    // Any thread but the agent's: true when no thread is inside `startThread` any more, false if one is still
    // after `patienceMs`.
    bool stopThread(int64_t patienceMs = STOP_PATIENCE_MS);
    // Any thread: tells it to end, without waiting.
    void requestStop();
    // Any thread: its present pause ends, or the next one.
    void wakeUp() { pause.wake(); }

    // Any thread: nobody waits for it any more. Its thread ends without a word when it can, and touches
    // nothing but itself; the object stays in memory.
    void forget();

    bool isAlive() const { return isRunning.load(std::memory_order_acquire); } // any thread

    // For the holder of the thread manager's lock: takes over a thread that nobody has. False, and not taken,
    // if it is null or the agent does not run.
    bool manageThreadData(ThreadData *thr);

    // Any thread: whether the next pass shall send the initial data again.
    void notifyPSReconnect(bool resend) { resendInitialDataPending = resend; }

    void setSleepTime(int32_t ms); // any thread; a sleeper wakes at once for a shorter one
    int32_t getSleepTime() const { return sleepTime; }      // any thread, ms
    uint32_t getMemoryTaken() const { return memoryTaken; } // any thread, bytes; as of the last pass
    int32_t getNumberOfEvents();                            // any thread; of all queues
    void reduceMemoryUsed();
    ThreadData *getSpecialThreadData() const { return specialThreadData; } // any thread; null if it has none

    // For the agent's thread: whether a queue that fills has called for this pass ahead of its time.
    bool isHurried() const { return hurried; }

    int32_t getId() const { return id; }
    JNIEnv *getEnv() const { return env; } // of the agent's thread

    void prepareLocks();

private:
    // The loop.
    void enterLoop(JNIEnv *threadEnv);
    void runPass();
    void leaveLoop();
    bool canSend();
    void sendPass();
    int64_t pauseByFill(int32_t packetSize) const;
    void waitForPS();
    void checkMemory();
    void computeMemoryTaken();
    void sleep(int64_t ms);
    void rest(int64_t ms);

    // The list.
    Pause *hurriedBy() { return queuesWake ? &pause : nullptr; }
    void adoptThreads();
    bool listSpecialThread();
    bool unlistEnded(bool (*isDoneWith)(const ThreadData &thr));
    void deleteThread(ThreadData *thr);
    void releaseThreads();

    // After a reconnection.
    void resendIfPending();
    bool resendInitialData();
    void callSendAllClassEvents();

    // Packets.
    int32_t prepare2send();
    int32_t walkRound(ProtocolVisitor &visitor);
    int32_t processThread(ProtocolVisitor &visitor);
    int32_t processQueue(EventQueue &queue, ProtocolVisitor &visitor);
    bool addEventToBuffer(Event &evt, ProtocolVisitor &visitor);
    static void consumeFirst(ThreadData &thr, const Event &first);
    static void loseFirst(ThreadData &thr, const Event &first);

    // Dropping.
    int32_t dropRecordsFromQueue(ThreadData *thrData, bool addDropRec, ProtocolVisitor *visitor);
    int32_t dropOldest(ThreadData &thrData, int32_t lookAt, bool countDrops);
    void addDroppedEvent(ThreadData &thrData, ProtocolVisitor &visitor);
    void updateDropRecordCounters(const Event &evt);
    void tellLosses();
    int32_t keptWithoutPS() const;
    void dropRecordsOnPSDown();
    int32_t deleteDeadThread(ThreadData *thr);
    void reportDropsOnPSDown(int32_t total) const;

    // Guard themselves.
    ZykList<ThreadData *> threadList{true}; // others append; only the agent takes out
    Pause pause;

    // Written by the agent, read by any thread.
    std::atomic<bool> entered{false};   // a thread is inside `startThread`
    std::atomic<bool> isRunning{false}; // the loop runs
    Relaxed<uint32_t> memoryTaken{0};
    Relaxed<ThreadData *> specialThreadData{nullptr};

    // Written and read by any thread.
    std::atomic<bool> keepRunning{false};
    std::atomic<bool> forgotten{false};
    Relaxed<bool> resendInitialDataPending{false};
    Relaxed<int32_t> sleepTime; // ms

    // Set at its birth.
    const int32_t id;
    const int32_t packetSizeKB;
    const std::unique_ptr<char[]> packetBuffer; // null if memory ran out: the agent then refuses to start
    const int32_t queueLimit;
    const int32_t psDownIterationLimit; // passes in about 30 seconds
    const bool noSleep;
    const int32_t popSize; // a batch of events; as nothing is taken out before it is written, without effect
    const bool exactDrops; // losses of any kind are told
    const bool queuesWake; // queues that fill call for a pass

    // Of the agent's thread alone.
    JNIEnv *env = nullptr;
    ThreadRound round;                   // the list as of the start of a walk
    ThreadData *currentThread = nullptr; // where the round continues
    int32_t psDownQueueLimit;            // what queues keep during an outage
    int32_t psDownIterations = 0;
    bool hurried = false; // the present pass was called for
    DropFigures drops;    // of the present dropping pass
    DropFigures inPacket; // what is lost with the present packet
};

// Queues what every new connection has to know again. Set by the layer that keeps it; null until then.
extern Relaxed<void (*)(JNIEnv *)> resendHook;
