// The governor of the agent's memory: two two-point controls over one estimate of what is queued.
// The accept control stops all new data at the memory limit; the turbo control, set lower, speeds the
// pumps up and holds application threads back. Estimates come from counters kept as events pass: nothing
// here walks a heap or asks the operating system. All byte limits are decimal.
#pragma once

#include "Inside.h"
#include "NamedObject.h"
#include "Relaxed.h"
#include "ZykLock.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <jni.h>

// A pool of agent threads as the governor sees it.
class AgentPool {
public:
    virtual ~AgentPool() = default;
    virtual int32_t getSleepTime() = 0;                            // of the first agent, ms; 0 with none
    virtual bool setSleepTime(long ms) = 0;                        // of all agents
    virtual bool setThreadPriority(JNIEnv *env, int priority) = 0; // of the Java threads; false on failure
    virtual int32_t getTotalDataSize() = 0;                        // bytes queued
};

class ThreadData;

// Of either pool: a slip in the configuration must not cost a server its threads.
constexpr int32_t MAX_POOL_SIZE = 256;

// Event agents and the kilobytes of each one's packet buffer as they are used: a setting that cannot be
// worked with is brought into its range, or becomes the default.
int32_t eventPoolSize();
int32_t eventPacketKB();

class MemoryMonitor : public virtual NamedObject {
public:
    MemoryMonitor();
    ~MemoryMonitor() override;

    // Makes the singleton if it does not exist.
    static void create();
    // Waits until the last thread has left the gate, 10 seconds at most. The probe must be disabled and turbo
    // mode left before.
    static void destroy();

    void start();
    void stop();

    // Computes the total from the bytes in the event queues and runs the accept control.
    // True while new data is refused. From any thread.
    bool checkForULimit(uint32_t eventBytes);

    // Keeps the account of the event queues between two checks: bytes that came, negative for such that went.
    // Crossing the limit stops new data at once and not a pass later. From any thread, in portions.
    void noteGrowth(int64_t bytes);
    // That account: what each event agent saw in its last pass, and what its threads have reported since.
    uint32_t getEventBytes() const {
        return static_cast<uint32_t>(std::max<int64_t>(eventBytesNow.load(std::memory_order_relaxed), 0));
    }
    // The check with it.
    bool checkAccount();

    // Runs the turbo control. Both switches must come from one and the same thread.
    void checkTurboMode(JNIEnv *env);
    bool inTurboMode() const { return turbo; }

    // The admission gate at the head of every event-making native: true means drop this call.
    // In turbo mode the calling thread may wait here until the mode ends.
    bool shouldReject(JNIEnv *env);

    // For the thread that runs the turbo control, on its way out: ends turbo mode, so that every thread that
    // waits at the gate goes on. Does nothing in normal mode.
    void leaveTurboMode(JNIEnv *env);

    // The last computed total, bytes.
    uint32_t getMemoryTaken() const { return memoryTaken; }

    // The pools, registered by their managers; null unregisters.
    static void setEventPool(AgentPool *pool);
    static void setNetworkPool(AgentPool *pool);

private:
    void initializeSizes();
    void readProperties();
    void readMemoryLimits();
    int32_t readTurboLimit(const char *key, float defaultShare, int32_t fallback, const char *zeroText,
                           const char *invalidText);
    void readPriorities();
    void logProperties();
    void setResetTimer();
    void turnAcceptControl();
    bool mayEnterTurbo() const;
    bool turboHasToEnd();
    bool turboIsStalled();
    void switchToTurboMode(JNIEnv *env);
    void switchToNormalMode(JNIEnv *env);
    bool refusedInTurbo(ThreadData *td);
    bool passTurboLock();

    ZykLock lock; // held during a check
    Relaxed<uint32_t> memoryTaken{0};
    int32_t naTurboPriority = 10;
    int32_t naTurboSleep = 50;
    int32_t eaTurboPriority = 8;
    int32_t eaTurboSleep = 100;
    int32_t turboULimit = 75000000;
    int32_t turboLLimit = 40000000;
    ZykLock turboLock;
    Relaxed<bool> turbo{false};
    int32_t naNormalPriority = 7;
    int32_t eaNormalPriority = 5;
    int32_t naNormalSleep = 2000;
    const int32_t eaNormalSleep = 2000; // the event agents' own sleep is never read back
    Relaxed<bool> allowNew{true};
    std::atomic<int32_t> waitingAtGate{0};
    std::atomic<int64_t> eventBytesNow{0};
    Relaxed<uint32_t> otherBytes{0}; // of the last total: all but the event queues
    uint32_t lowestInTurbo = 0;      // of the totals in this turbo mode, and when it was seen
    std::chrono::steady_clock::time_point lowestSeenAt;
    bool turboWasStalled = false; // the last turbo mode brought nothing: none before the total has been low
};

extern Relaxed<MemoryMonitor *> memoryMonitor;

// The gate as natives call it: refuses also while no monitor exists.
inline bool shouldReject(JNIEnv *env) {
    MemoryMonitor *monitor = memoryMonitor;
    return monitor == nullptr || monitor->shouldReject(env);
}

// Limits of texts in events (bytes kept, the NUL included) and the running averages that weigh a text before
// its event exists in full.
extern Relaxed<int32_t> urlLimit;
extern Relaxed<int32_t> sqlLimit;
extern Relaxed<int32_t> averageUrlLength;
extern Relaxed<int32_t> averageSqlLength;

// Measures the first 254 texts of its kind, sets the average once and then rests. Without a lock: a lost
// update only moves an estimate.
class TextSamples {
public:
    explicit constexpr TextSamples(Relaxed<int32_t> &averageLength) : average(averageLength) {}
    void add(int32_t bytes);
    void reset();

private:
    Relaxed<int32_t> &average;
    std::atomic<uint16_t> samples{0}; // changed from the value seen only: a late thread must not thaw it
    Relaxed<uint32_t> sampleBytes{0};
};

extern TextSamples urlSamples;
extern TextSamples sqlSamples;
