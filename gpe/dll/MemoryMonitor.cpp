#include "MemoryMonitor.h"

#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "PropertyMgr.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "platform.h"

#include <algorithm>
#include <cstdio>
#include <new>

Relaxed<MemoryMonitor *> memoryMonitor(nullptr);
Relaxed<int32_t> urlLimit(300);
Relaxed<int32_t> sqlLimit(5000);
Relaxed<int32_t> averageUrlLength(100);
Relaxed<int32_t> averageSqlLength(1000);
TextSamples urlSamples(averageUrlLength);
TextSamples sqlSamples(averageSqlLength);

namespace {

constexpr int32_t MEGABYTE = 1000000;
constexpr int32_t BASE_FOOTPRINT = 4000000;
constexpr int32_t THREAD_RECORD_SIZE = 232;
constexpr int32_t TURBO_FLOOR = 4100000;
constexpr int32_t TURBO_ULIMIT_FALLBACK = 75000000;
constexpr int32_t TURBO_LLIMIT_FALLBACK = 40000000;
constexpr uint16_t SAMPLES_WANTED = 254;
constexpr uint16_t SAMPLES_FROZEN = 65535;
constexpr int GATE_POLL_MS = 5;
constexpr int GATE_PATIENCE_MS = 10000;

constexpr int32_t LEAST_PORTION = 1024;
constexpr int32_t MOST_PORTION = 16384;
constexpr int32_t UNREPORTED_SHARE = 64; // of the limit, in all threads together

constexpr int32_t DEFAULT_PACKET_KB = 2000;
constexpr int32_t MOST_PACKET_KB = INT32_MAX / 1024; // a packet's size is 32 bits wide

// Threads wait for it. A slow link shows progress only once a whole packet has gone and may be taken for one
// that is stalled: turbo mode then ends early, which is the lesser evil.
constexpr std::chrono::seconds STALL_TIME(1);

enum TurboState : int { NORMAL = 1, TURBO = 2 };

Relaxed<AgentPool *> eventPool(nullptr);
Relaxed<AgentPool *> networkPool(nullptr);

Relaxed<int32_t> minimumMemory(0);
Relaxed<int32_t> memoryLimit(60 * MEGABYTE);
Relaxed<int32_t> acceptThreshold(2 * MEGABYTE);
int32_t queueCounterResetIterations = 1800;
Relaxed<int> turboState(NORMAL);

// More bytes than 32 bits can hold count as the most they can.
int32_t bounded(double bytes) {
    return static_cast<int32_t>(std::clamp<double>(bytes, INT32_MIN, INT32_MAX));
}

int32_t megabytes(int32_t count) {
    return bounded(static_cast<double>(count) * MEGABYTE);
}

int32_t difference(int32_t from, int32_t amount) {
    return bounded(static_cast<double>(from) - amount);
}

int32_t truncated(float bytes) {
    return bytes >= 2147483648.0F ? INT32_MAX : static_cast<int32_t>(bytes);
}

int32_t portionFor(uint32_t threadCount) {
    const auto share = static_cast<uint32_t>(memoryLimit) / UNREPORTED_SHARE / std::max(threadCount, 1U);
    return std::clamp(static_cast<int32_t>(share), LEAST_PORTION, MOST_PORTION);
}

void noteGrowthOfQueues(int64_t bytes) {
    MemoryMonitor *monitor = memoryMonitor;
    if (monitor != nullptr) {
        monitor->noteGrowth(bytes);
    }
}

} // namespace

int32_t eventPoolSize() {
    return std::clamp(intProperty("eventagent.pool.size", 1), 1, MAX_POOL_SIZE);
}

int32_t eventPacketKB() {
    const int32_t wanted = longProperty("internal.probe.event.packet.size", DEFAULT_PACKET_KB);
    return wanted >= 1 && wanted <= MOST_PACKET_KB ? wanted : DEFAULT_PACKET_KB;
}

// ---------------------------------------------------------------- weights of texts

void TextSamples::add(int32_t bytes) {
    uint16_t before = samples.load(std::memory_order_relaxed);
    if (before == SAMPLES_FROZEN) {
        return;
    }
    sampleBytes += static_cast<uint32_t>(bytes);
    const bool last = before + 1 == SAMPLES_WANTED;
    const auto after = last ? SAMPLES_FROZEN : static_cast<uint16_t>(before + 1);
    if (samples.compare_exchange_strong(before, after, std::memory_order_relaxed) && last) {
        average = static_cast<int32_t>(sampleBytes / SAMPLES_WANTED);
    }
}

void TextSamples::reset() {
    samples = 0;
    sampleBytes = 0;
}

// ---------------------------------------------------------------- life

MemoryMonitor::MemoryMonitor() : NamedObject("MemoryMonitor"), lock(true), turboLock(true) {
    memoryMonitor = this;
    growthHook = noteGrowthOfQueues;
}

MemoryMonitor::~MemoryMonitor() = default;

void MemoryMonitor::create() {
    if (memoryMonitor == nullptr) {
        new (std::nothrow) MemoryMonitor();
    }
}

// Turbo mode is over by then: those that have waited only have to be scheduled once more. If one does not
// come out, the monitor stays in memory: better than a thread inside a lock that is gone.
void MemoryMonitor::destroy() {
    MemoryMonitor *monitor = memoryMonitor;
    if (monitor == nullptr) {
        return;
    }
    growthHook = nullptr;
    memoryMonitor = nullptr;
    const bool allLeft = awaitDeparture();
    for (int waited = 0; monitor->waitingAtGate > 0; waited += GATE_POLL_MS) {
        if (waited >= GATE_PATIENCE_MS) {
            return;
        }
        thread_sleep(GATE_POLL_MS);
    }
    if (allLeft) {
        delete monitor;
    }
}

void MemoryMonitor::setEventPool(AgentPool *pool) {
    eventPool = pool;
}

void MemoryMonitor::setNetworkPool(AgentPool *pool) {
    networkPool = pool;
}

void MemoryMonitor::start() {
    initializeSizes();
    readProperties();
    setResetTimer();
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "MemoryMonitor::start()", "MemoryMonitor started");
}

void MemoryMonitor::stop() {
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "MemoryMonitor::stop()", "MemoryMonitor stoped");
    memoryTaken = 0;
}

// ---------------------------------------------------------------- properties

void MemoryMonitor::initializeSizes() {
    notAccepting = false;
    turboWasStalled = false;
    eventBytesNow = 0;
    otherBytes = 0;
    growthPortion = MOST_PORTION;
    memoryLimit = 60 * MEGABYTE;
    acceptThreshold = 2 * MEGABYTE;
    urlLimit = 300;
    sqlLimit = 5000;
    queueCounterResetIterations = 1800;
    averageUrlLength = 100;
    averageSqlLength = 1000;
    urlSamples.reset();
    sqlSamples.reset();
}

void MemoryMonitor::readProperties() {
    minimumMemory = bounded(BASE_FOOTPRINT + eventPoolSize() * (eventPacketKB() * 1024.0));
    allowNew = boolProperty("turbomode.allownew", true);
    urlLimit = longProperty("internal.url.limit", 1000);
    sqlLimit = longProperty("internal.sql.limit", 5000);
    readMemoryLimits();
    readPriorities();
    turboULimit = readTurboLimit("turbo.mem.ulimit", 0.75F, TURBO_ULIMIT_FALLBACK,
                                 "turbo.mem.ulimit is 0, invalid value, resetting it to %f",
                                 "Invalid Turbo Mode ULimit %d, resetting to %d bytes");
    turboLLimit = readTurboLimit("turbo.mem.llimit", 0.4F, TURBO_LLIMIT_FALLBACK,
                                 "turbo.mem.llimit is 0, invalid value, resetting it to %f",
                                 "Invalid Turbo Mode LLimit %d, resetting to %d bytes");
    naNormalPriority = intProperty("na.thread.priority", 7);
    eaNormalPriority = intProperty("ea.thread.priority", 5);
    logProperties();
}

void MemoryMonitor::readMemoryLimits() {
    memoryLimit = megabytes(longProperty("internal.memory.limit", 60));
    if (memoryLimit <= minimumMemory) {
        memoryLimit = minimumMemory.get();
        messageInfo(1051, "Ignoring user specified Memory Limit as it's less than minimum limit, %d MB",
                    minimumMemory.get());
    }
    acceptThreshold = megabytes(longProperty("internal.memory.accept.threshold", 2));
    if (acceptThreshold > difference(memoryLimit, minimumMemory)) {
        acceptThreshold = difference(memoryLimit, minimumMemory) / 2;
        AM_TRACE(ccTracer, LGK_DEBUG_MIN, "MemoryMonitor::readProperties()",
                 "Accept threshold is greater than Max Limit - Min Limit, using %d", acceptThreshold.get());
    }
}

void MemoryMonitor::readPriorities() {
    naTurboPriority = intProperty("na.turbo.priority", 10);
    naTurboSleep = intProperty("na.turbo.sleep", 20);
    eaTurboPriority = intProperty("ea.turbo.priority", 8);
    eaTurboSleep = intProperty("ea.turbo.sleep", 20);
}

int32_t MemoryMonitor::readTurboLimit(const char *key, float defaultShare, int32_t fallback,
                                      const char *zeroText, const char *invalidText) {
    float share = floatProperty(key, defaultShare);
    if (share == 0.0F) {
        share = defaultShare;
        char text[128];
        snprintf(text, sizeof(text), zeroText, static_cast<double>(share));
        traceInfo("%s", text);
    }
    const int32_t limit = truncated(static_cast<float>(memoryLimit) * share);
    if (limit <= TURBO_FLOOR) {
        traceInfo(invalidText, limit, fallback);
        return fallback;
    }
    return limit;
}

void MemoryMonitor::logProperties() {
    messageInfo(1052,
                " Memory Monitor properties, ULimit %d bytes, Accept Threshold %d bytes, URL Limit: %d, SQL "
                "Limit: %d",
                memoryLimit.get(), acceptThreshold.get(), urlLimit.get(), sqlLimit.get());
    traceInfo("Memory Monitor properties, ULimit %d bytes, Accept Threshold %d bytes, URL Limit: %d, SQL "
              "Limit: %d TurboLLimit: %d, TurboULimit: %d",
              memoryLimit.get(), acceptThreshold.get(), urlLimit.get(), sqlLimit.get(), turboLLimit,
              turboULimit);
    traceInfo("EA Normal Priority: %d, EA Turbo Priority: %d, EA Turbo Sleep: %d ", eaNormalPriority,
              eaTurboPriority, eaTurboSleep);
    traceInfo("NA Normal Priority: %d, NA Turbo Priority: %d, NA Turbo Sleep: %d ", naNormalPriority,
              naTurboPriority, naTurboSleep);
}

void MemoryMonitor::setResetTimer() {
    const int32_t seconds = std::max(0, longProperty("internal.counter.resettime", 3600));
    const int32_t period = longProperty("internal.probe.publishing.frequency", 2000) / 1000;
    queueCounterResetIterations =
        static_cast<int32_t>(static_cast<double>(seconds) / static_cast<double>(period <= 0 ? 1 : period));
    messageInfo(1053, "Queue counter resets every %d iterations", queueCounterResetIterations);
}

// ---------------------------------------------------------------- accept control

// Under the lock from the first figure on: nobody goes by a total that is older than the last one told.
bool MemoryMonitor::checkAccount() {
    const ZykLockGuard guard(lock);
    return checkForULimit(getEventBytes());
}

bool MemoryMonitor::checkForULimit(uint32_t eventBytes) {
    const ZykLockGuard guard(lock);
    AgentPool *network = networkPool;
    ThreadMgr *threads = threadMgr;
    const uint32_t networkBytes = network != nullptr ? static_cast<uint32_t>(network->getTotalDataSize()) : 0;
    const uint32_t threadCount = threads != nullptr ? static_cast<uint32_t>(threads->getThreadCount()) : 0;
    otherBytes = networkBytes + threadCount * THREAD_RECORD_SIZE + static_cast<uint32_t>(minimumMemory);
    memoryTaken = eventBytes + otherBytes;
    growthPortion = portionFor(threadCount);
    turnAcceptControl();
    return notAccepting;
}

void MemoryMonitor::turnAcceptControl() {
    const uint32_t total = memoryTaken;
    if (total >= static_cast<uint32_t>(memoryLimit)) {
        if (!notAccepting) {
            messageInfo(1054,
                        "Memory Limit reached, datacollector stopped accepting data, Limit: %ld Memory "
                        "Utilization: %ld",
                        static_cast<long>(memoryLimit), static_cast<long>(total));
        }
        notAccepting = true;
    } else if (notAccepting && total <= static_cast<uint32_t>(difference(memoryLimit, acceptThreshold))) {
        notAccepting = false;
        messageInfo(1055,
                    "Memory Utlization below Limit, datacollector is accepting data, Limit: %ld Memory "
                    "Utilization: %ld",
                    static_cast<long>(memoryLimit), static_cast<long>(total));
    }
}

void MemoryMonitor::noteGrowth(int64_t bytes) {
    const int64_t eventBytes = eventBytesNow.fetch_add(bytes, std::memory_order_relaxed) + bytes;
    if (bytes > 0 && !notAccepting && eventBytes + otherBytes >= memoryLimit) {
        checkAccount();
    }
}

// ---------------------------------------------------------------- turbo control

void MemoryMonitor::checkTurboMode(JNIEnv *env) {
    if (turboULimit <= TURBO_FLOOR) {
        traceInfo("Invalid Turbo Mode Upper Limit %d, resetting to %d bytes", turboULimit,
                  TURBO_ULIMIT_FALLBACK);
        turboULimit = TURBO_ULIMIT_FALLBACK;
    }
    if (turboLLimit <= TURBO_FLOOR) {
        traceInfo("Invalid Turbo Mode Lower Limit %d, resetting to %d bytes", turboLLimit,
                  TURBO_LLIMIT_FALLBACK);
        turboLLimit = TURBO_LLIMIT_FALLBACK;
    }
    if (memoryTaken <= static_cast<uint32_t>(turboLLimit)) {
        turboWasStalled = false;
    }
    if (turboState == TURBO) {
        if (turboHasToEnd()) {
            switchToNormalMode(env);
        }
    } else if (memoryTaken >= static_cast<uint32_t>(turboULimit) && mayEnterTurbo()) {
        switchToTurboMode(env);
    }
}

// Who has waited through the last turbo mode passes first: locks are not fair, and a thread must not meet one
// after the other.
bool MemoryMonitor::mayEnterTurbo() const {
    return !turboWasStalled && !probeDisabled && waitingAtGate == 0;
}

// A probe that is being stopped lets the threads at the gate go, and takes nothing that would have to wait.
bool MemoryMonitor::turboHasToEnd() {
    return probeDisabled || memoryTaken <= static_cast<uint32_t>(turboLLimit) || turboIsStalled();
}

// With a receiver that does not read, the packets in the network queues alone can hold the total above the
// lower limit. Application threads would then wait for nothing: turbo mode ends when it has brought nothing
// for a while, and does not come back before the total has been low. The accept control goes on guarding
// memory.
bool MemoryMonitor::turboIsStalled() {
    const auto now = std::chrono::steady_clock::now();
    if (memoryTaken < lowestInTurbo) {
        lowestInTurbo = memoryTaken;
        lowestSeenAt = now;
    }
    turboWasStalled = now - lowestSeenAt >= STALL_TIME;
    return turboWasStalled;
}

void MemoryMonitor::leaveTurboMode(JNIEnv *env) {
    if (turboState == TURBO) {
        switchToNormalMode(env);
    }
}

void MemoryMonitor::switchToTurboMode(JNIEnv *env) {
    traceInfo("Switching to Turbo Mode, memory taken: %ld, Turbo Memory ULimit: %d, Mode: %d",
              static_cast<long>(memoryTaken), turboULimit, turboState.get());
    turboLock.lock();
    AgentPool *network = networkPool;
    AgentPool *events = eventPool;
    naNormalSleep = network != nullptr ? network->getSleepTime() : 0;
    if (network != nullptr) {
        network->setSleepTime(naTurboSleep);
        network->setThreadPriority(env, naTurboPriority);
    }
    if (events != nullptr) {
        events->setSleepTime(eaTurboSleep);
        events->setThreadPriority(env, eaTurboPriority);
    }
    lowestInTurbo = memoryTaken;
    lowestSeenAt = std::chrono::steady_clock::now();
    turboState = TURBO;
    turbo = true;
}

void MemoryMonitor::switchToNormalMode(JNIEnv *env) {
    traceInfo("Switching to Normal Mode, memory taken: %ld, Turbo Memory LLimit: %d, Mode: %d",
              static_cast<long>(memoryTaken), turboLLimit, turboState.get());
    turbo = false;
    AgentPool *network = networkPool;
    AgentPool *events = eventPool;
    if (network != nullptr) {
        network->setSleepTime(naNormalSleep);
        network->setThreadPriority(env, naNormalPriority);
    }
    if (events != nullptr) {
        events->setSleepTime(eaNormalSleep);
        events->setThreadPriority(env, eaNormalPriority);
    }
    turboState = NORMAL;
    turboLock.unlock();
}

// ---------------------------------------------------------------- admission gate

bool MemoryMonitor::shouldReject(JNIEnv *env) {
    if (probeDisabled) {
        return true;
    }
    ThreadMgr *threads = threadMgr;
    ThreadData *td = threads != nullptr ? threads->getThreadData(env) : nullptr;
    if (td == nullptr) {
        return notAccepting;
    }
    if (turbo) {
        if (allowNew ? refusedInTurbo(td) : !passTurboLock()) {
            return true;
        }
        // The wait may have outlived a stop and a start, and with them the record.
        td = threads->getThreadData(env);
        if (td == nullptr) {
            return notAccepting;
        }
    } else if (allowNew && !td->acceptingNewRequests) {
        td->acceptNewRequests();
    }
    const bool refusing = notAccepting;
    td->noteMemoryLimit(refusing);
    return refusing;
}

// A thread in the middle of a request waits for the end of turbo mode and keeps its request whole; a thread
// outside any is refused until a call made after turbo mode.
bool MemoryMonitor::refusedInTurbo(ThreadData *td) {
    if (!td->acceptingNewRequests) {
        return true;
    }
    if (td->requestDepth > 0) {
        return !passTurboLock();
    }
    td->refuseNewRequests();
    return true;
}

// Waits at the gate, out of the way of a stop. False if the probe was stopped meanwhile: the thread's record
// may be gone, and once it is counted out the monitor too.
bool MemoryMonitor::passTurboLock() {
    ++waitingAtGate;
    const Outside waiting;
    turboLock.lock();
    turboLock.unlock();
    --waitingAtGate;
    return !probeDisabled;
}
