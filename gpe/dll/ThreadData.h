// What the agent keeps about one Java thread: nesting counters, clocks, memory accounts, and the queue that
// the thread fills and exactly one event agent drains. At its limit the queue refuses all but the few types
// that the receiver cannot do without.
// At any time one thread fills it: mostly its own. While that waits for a monitor, whoever reports the wait
// does it under the thread manager's lock; a special queue has many writers, and `appendEvent` lets in one at
// a time.
#pragma once

#include "EventQueue.h"
#include "KnownString.h"
#include "LossAccount.h"
#include "NamedObject.h"
#include "Relaxed.h"

#include <atomic>
#include <cstdint>
#include <jni.h>

class Pause;

// Of the calls that servers make most.
struct KnownStrings {
    KnownString requestName, applicationName, url, userId, sql, dataSource;
};

// Whoever finds threads by their keys: the thread manager.
class ThreadKeeper {
public:
    virtual bool isStarted() const = 0;
    // Forgets the key, whose value the JVM may give to the next thread. False if it was unknown.
    virtual bool updateOnThreadEnd(JNIEnv *tid) = 0;

protected:
    ~ThreadKeeper() = default;
};

// Set by the layers above; null while there is nobody.
extern Relaxed<ThreadKeeper *> threadKeeper; // not owned
// Told of bytes that came into queues, or went if negative.
extern Relaxed<void (*)(int64_t bytes)> growthHook;

// Bytes that a thread queues before it reports them: smaller with many threads, so that all that is
// unreported stays a small share of the memory limit.
extern Relaxed<int32_t> growthPortion;

class ThreadData : public virtual NamedObject {
public:
    explicit ThreadData(JNIEnv *env);
    // Destroys what is still queued. Only the owning event agent, or the thread manager on its stop, does so.
    ~ThreadData() override;

    // Any thread; true if the event stands in the queue, else it stays with its draft. Null gives false.
    bool appendEvent(EventDraft *evt);

    // The highest of `t` and all earlier values, nanoseconds: a thread's CPU time never runs backwards.
    long long monotonicCpuTime(long long t) {
        if (t > lastCpuTime) {
            lastCpuTime = t;
        }
        return lastCpuTime;
    }

    // On the ending thread, for a virtual one on the leading event agent's: leaves the thread manager and
    // refuses further events. What is queued is still sent. The object may be gone when this returns.
    void resetOnThreadEnd();

    void deleteInFlightData();

    // Events queued; a hint while others append.
    int32_t queueSize() const;

    // Charge an event's size to its account: that of classes and methods, or the other.
    void addToProduced(const Event &evt);
    void takeBackProduced(const Event &evt);
    void addToConsumed(const Event &evt);
    void takeBackConsumed(const Event &evt);

    // Counts the record itself among the bytes of its queue, as long as it exists: there may be as many
    // virtual threads as events. On the thread that has just been listed.
    void chargeRecord();

    // Bytes in the queue by the accounts, modulo 2^32.
    uint32_t bytesQueued() const;

    // Bytes that the memory monitor was told of since the last call; for the one who now counts them himself.
    // He counts the unreported too: if the thread adds to them just now, they are told twice until the next
    // call.
    int64_t takeReported() {
        unreportedBytes = 0;
        return reportedBytes.exchange(0, std::memory_order_relaxed);
    }

    // What the queue has refused since the last call, for the one who drains it. Each side writes words of
    // its own, so that nothing is lost between the two.
    DropFigures takeRefused();

    bool acceptsEvents() const { return isAlive.load(std::memory_order_acquire); }

    // For the gate that the thread has to pass. The gap of each time at the memory limit is marked once.
    void noteMemoryLimit(bool reached) {
        if (reached != memoryLimitMarkerSent) {
            memoryLimitMarkerSent = reached && appendGapMarker();
        }
    }
    // Marks the gap too.
    void refuseNewRequests();
    void acceptNewRequests() { acceptingNewRequests = true; }

    // For whoever drains it: whether he has it in his list, and what ends his rest when it fills, if
    // anything.
    void setListed(bool isListed, Pause *hurriedBy = nullptr) {
        hurries = hurriedBy;
        listed = isListed;
    }
    // Other threads may append too from now on.
    void share() { isShared = true; }
    // How many the queue has refused since the last call; one may be overlooked.
    int32_t takeDroppedAtAppend();

    // For its maker, who destroys it before an agent has seen it: that is worth no word.
    void endUnseen() { isAlive = false; }

    // Plain words of the thread. Others touch them under the thread manager's lock only: whoever reports what
    // it waits for, meanwhile, and whoever ends the record of a thread that is over.
    int64_t lastCpuTime = 0; // nanoseconds
    uint32_t lastEjbTimeSec = 0;
    uint32_t lastEjbTimeUSec = 0;
    int32_t requestDepth = 0;           // nesting of requests, 0 outside any
    int32_t sqlWrapperDepth = 0;        // open SQL requests of the statement wrappers
    int32_t suppressedNestedCount = 0;  // begins swallowed by the nested-request switch
    bool memoryLimitMarkerSent = false; // a marker was queued for the present memory-limit state
    bool acceptingNewRequests = true;   // false while turbo mode refuses new requests
    char *pageName = nullptr;           // last portal page, owned
    KnownStrings *known = nullptr;      // owned; made when first needed
    char *inFlightBuffer1 = nullptr;    // owned; nobody fills them
    char *inFlightBuffer2 = nullptr;

    // Written by the one who appends; the drainer reads them, and takes from the last three.
    Relaxed<bool> droppedMarkerSent{false}; // a marker stands for the present overflow
    Relaxed<uint32_t> bytesAddedOther{0};
    Relaxed<uint32_t> bytesAddedClassMethod{0};
    Relaxed<uint32_t> refused[DropFigures::KINDS]; // since its birth, by kind, modulo 2^32
    Relaxed<int32_t> droppedAtAppend{0};           // refused since the drainer last looked
    Relaxed<int32_t> unreportedBytes{0};           // added since the memory monitor was last told
    std::atomic<int64_t> reportedBytes{0};         // what it was told since the drainer last summed up

    // Written by the drainer; any thread may read the first two.
    Relaxed<uint32_t> bytesConsumedOther{0};
    Relaxed<uint32_t> bytesConsumedClassMethod{0};
    uint32_t refusedTaken[DropFigures::KINDS] = {}; // of `refused` the part that he has seen

    // Written under the thread manager's lock, `listed` also by the drainer once the thread has ended.
    std::atomic<bool> isAlive{true};       // its release at thread end hands the object to the agent
    Relaxed<bool> listed{false};           // an event agent has it in its list
    std::atomic<Pause *> hurries{nullptr}; // of that agent
    Relaxed<bool> threadSuspendedFlag{false};
    Relaxed<bool> threadEndedFlag{false};
    ThreadData *nextWatched = nullptr;  // of the manager's own chains
    ThreadData *nextInBucket = nullptr; // of the table of virtual threads: under its lock

    // Set once: before others can see the object, but for the names and `isShared`.
    JNIEnv *const envId;                     // the thread's key
    Relaxed<uint32_t> threadId{0};           // goes into every event of this thread
    EventQueue *eventQueue = nullptr;        // owned, guards itself; null only if memory ran out
    jweak virtualThread = nullptr;           // whose it is, for a virtual thread; owned
    std::atomic<char *> threadName{nullptr}; // owned, from malloc; by the thread's start, may stay null
    std::atomic<char *> groupName{nullptr};  // likewise
    Relaxed<bool> isShared{false};           // a special queue: other threads append too

private:
    void initialize();
    void refuse(const Event &evt);
    void reportGrowth(int32_t bytes);
    void reportRefusal(const EventDraft *evt) const;
    bool appendGapMarker();
    void hurryAgent();
};

// Whether a queue beyond a quarter of its limit wakes its agent: the property `internal.probe.queue.wakeup`.
bool queuesWakeAgents();
