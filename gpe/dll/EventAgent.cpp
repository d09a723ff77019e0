#include "EventAgent.h"

#include "Event.h"
#include "Inside.h"
#include "MemoryMonitor.h"
#include "ProbeLgKit.h"
#include "PropertyMgr.h"
#include "ProtocolVisitor.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "jnihelp.h"
#include "platform.h"

#include <algorithm>
#include <new>
#include <strings.h>

Relaxed<EventAgentHost *> eventAgentHost(nullptr);
Relaxed<void (*)(JNIEnv *)> resendHook(nullptr);

namespace {

constexpr int32_t DEFAULT_SLEEP_MS = 2000;
constexpr int32_t OUTAGE_GRACE_MS = 30000;
constexpr int64_t STOP_POLL_MS = 1000;

int32_t configuredSleepTime() {
    const int32_t ms = longProperty("internal.probe.publishing.frequency", DEFAULT_SLEEP_MS);
    return ms >= 1 ? ms : DEFAULT_SLEEP_MS;
}

bool isTrue(const char *text) {
    return text != nullptr && strcasecmp(text, "true") == 0;
}

void noteGrowth(int64_t bytes) {
    MemoryMonitor *monitor = memoryMonitor;
    if (monitor != nullptr) {
        monitor->noteGrowth(bytes);
    }
}

} // namespace

EventAgent::EventAgent(int agentId)
    : NamedObject("EventAgent"), sleepTime(configuredSleepTime()), id(agentId), packetSizeKB(eventPacketKB()),
      packetBuffer(new (std::nothrow) char[static_cast<size_t>(packetSizeKB) * 1024]),
      queueLimit(longProperty("internal.probe.event.queue.size.limit", 5000)),
      psDownIterationLimit(OUTAGE_GRACE_MS / sleepTime),
      noSleep(isTrue(stringProperty("eventagent.no.sleep", "false"))),
      popSize(std::max(intProperty("ea.popevent.size", 1), 1)), exactDrops(dropsAreExact()),
      queuesWake(queuesWakeAgents()), psDownQueueLimit(queueLimit) {
    traceInfo("EAID: %d PacketSize: %ld PopSize: %d QueueLimit: %ld Sleep: %ld ", id,
              static_cast<long>(packetSizeKB), popSize, static_cast<long>(queueLimit),
              static_cast<long>(sleepTime));
    AM_TRACE(eaTracer, LGK_DEBUG_MIN, "EventAgent::EventAgent( int id )",
             "Event Agent creation is successful");
}

EventAgent::~EventAgent() {
    AM_TRACE(eaTracer, LGK_DEBUG_MIN, "EventAgent::~EventAgent()", "Event Agent Destructed !!");
}

void EventAgent::prepareLocks() {
    threadList.prepareLock();
}

void EventAgent::reduceMemoryUsed() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MID, "EventAgent::reduceMemoryUsed()");
}

// ---------------------------------------------------------------- start and stop

void EventAgent::startThread(JNIEnv *threadEnv) {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, "EventAgent::startThread( JNIEnv *env )");
    if (packetBuffer == nullptr) {
        traceError("Event Agent ID: %d has no packet buffer of %d KB and cannot start", id, packetSizeKB);
        return;
    }
    const Inside inside;
    if (!inside || forgotten || entered.exchange(true)) {
        return;
    }
    enterLoop(threadEnv);
    while (keepRunning) {
        runPass();
    }
    leaveLoop();
    entered = false;
}

void EventAgent::enterLoop(JNIEnv *threadEnv) {
    constexpr char SIGNATURE[] = "EventAgent::startThread( JNIEnv *env )";
    env = threadEnv;
    psDownIterations = 0;
    threadList.clear();
    ProtocolVisitor::clearCommonNameCache();
    if (!listSpecialThread()) {
        AM_TRACE(eaTracer, LGK_DEBUG_MIN, SIGNATURE, "Special Queue was not created.");
    }
    drops = {};
    keepRunning = true;
    if (forgotten) { // meanwhile: nobody would tell it to end any more
        keepRunning = false;
    }
    isRunning = true;
    adoptThreads();
    EventAgentHost *manager = eventAgentHost;
    if (manager != nullptr) {
        manager->notifyEventAgentStatus(this, true);
    }
    AM_TRACE(eaTracer, LGK_DEBUG_MIN, SIGNATURE, "Event Agent Thread Started...");
}

// The turbo gate is held by the leader's thread: it must not stay shut behind it.
void EventAgent::leaveLoop() {
    keepRunning = false;
    isRunning = false;
    if (forgotten) {
        return;
    }
    EventAgentHost *manager = eventAgentHost;
    if (manager != nullptr) {
        manager->notifyEventAgentStatus(this, false);
    }
    MemoryMonitor *monitor = memoryMonitor;
    if (id == 0 && monitor != nullptr) {
        monitor->leaveTurboMode(env);
    }
    releaseThreads();
    AM_TRACE(eaTracer, LGK_DEBUG_MIN, "EventAgent::startThread( JNIEnv *env )",
             "Event Agent Thread Stopped..");
}

// The order to stop is given again in each round: the thread may have entered only after the last one.
bool EventAgent::stopThread(int64_t patienceMs) {
    AM_TRACE(eaTracer, LGK_DEBUG_MIN, "EventAgent::stopThread()", "Event Agent Thread being Stopped...");
    keepRunning = false;
    const int64_t deadline = monotonicMicros() + patienceMs * MICROS_PER_MS;
    while (entered && monotonicMicros() < deadline) {
        requestStop();
        waitOnLocalLock(STOP_POLL_MS);
    }
    return !entered;
}

void EventAgent::forget() {
    forgotten = true; // first: whoever enters now looks at it last
    requestStop();
}

void EventAgent::requestStop() {
    keepRunning = false;
    wakeUp();
}

// Not for a longer pause: modes that alternate would otherwise leave no pause at all.
void EventAgent::setSleepTime(int32_t ms) {
    const bool shorter = ms < sleepTime;
    sleepTime = ms;
    if (shorter) {
        wakeUp();
    }
}

void EventAgent::sleep(int64_t ms) {
    hurried = false;
    if (keepRunning) {
        pause.sleep(ms);
    }
}

void EventAgent::rest(int64_t ms) {
    hurried = keepRunning && pause.rest(ms);
}

// ---------------------------------------------------------------- one pass

void EventAgent::runPass() {
    checkMemory();
    if (canSend()) {
        sendPass();
    } else {
        waitForPS();
    }
}

bool EventAgent::canSend() {
    NetworkAgentMgr *network = networkAgentMgr;
    const EventAgentHost *manager = eventAgentHost;
    return network != nullptr && manager != nullptr && network->isConnected(this) && manager->maySend(this);
}

void EventAgent::sendPass() {
    constexpr char SIGNATURE[] = "EventAgent::startThread( JNIEnv *env )";
    if (hurried && !networkAgentMgr->hasRoom(this)) {
        sleep(sleepTime); // what it would make ahead of its time would be lost
        return;
    }
    resendIfPending();
    tellLosses();
    const int32_t size = prepare2send();
    if (size < 1) {
        rest(int64_t{sleepTime} * 2);
        return;
    }
    if (networkAgentMgr->send(this, packetBuffer.get(), size, inPacket)) {
        AM_TRACE(eaTracer, LGK_DEBUG_MID, SIGNATURE, "Buffer size sent to PS: %d", size);
        rest(noSleep ? 0 : pauseByFill(size));
    } else {
        lossAccount.enter(inPacket);
        messageWarn(1041, "Failed to send data, NAMgr send was unsuccessful");
        sleep(noSleep ? 0 : pauseByFill(size)); // nobody hurries it: the next packet would be lost too
    }
}

// A full packet means that the producers are ahead.
int64_t EventAgent::pauseByFill(int32_t packetSize) const {
    const int64_t bytes = int64_t{packetSizeKB} * 1024;
    if (packetSize < bytes * 20 / 100) {
        return int64_t{sleepTime} * 2;
    }
    if (packetSize < bytes * 50 / 100) {
        return sleepTime;
    }
    return packetSize < bytes * 75 / 100 ? sleepTime / 2 : 0;
}

void EventAgent::waitForPS() {
    while (keepRunning && !canSend()) {
        checkMemory();
        dropRecordsOnPSDown();
        sleep(sleepTime);
    }
}

void EventAgent::checkMemory() {
    computeMemoryTaken();
    EventAgentHost *manager = eventAgentHost;
    if (id == 0 && manager != nullptr) {
        manager->checkForMemory(this);
    }
}

// What stands in the queues takes the place of what was there in the last pass and was reported since: the
// memory monitor's account is right again, whatever has left the queues on whichever way.
void EventAgent::computeMemoryTaken() {
    if (!round.take(threadList)) {
        return;
    }
    uint32_t sum = 0;
    int64_t reported = 0;
    for (ThreadData *thr : round) {
        reported += thr->takeReported(); // first: what comes in between counts twice rather than never
        sum += thr->bytesQueued();
    }
    noteGrowth(static_cast<int32_t>(sum - memoryTaken) - reported);
    memoryTaken = sum;
    AM_TRACE(eaTracer, LGK_DEBUG_MAX, "EventAgent::computeMemoryTaken()", "exit with %lu",
             static_cast<unsigned long>(sum));
}

// ---------------------------------------------------------------- the list of threads

// The second look closes the gap in which the agent ends and clears its list: a thread is either seen by that
// or taken back here.
bool EventAgent::manageThreadData(ThreadData *thr) {
    if (!isAlive()) {
        messageWarn(1040, "EventAgent not started/alive, cannot manageThreadData");
        return false;
    }
    if (thr == nullptr) {
        return false;
    }
    if (thr->listed) {
        return true;
    }
    thr->setListed(true, hurriedBy());
    if (threadList.append(thr) && isAlive()) {
        return true;
    }
    threadList.remove(thr);
    thr->setListed(false);
    return false;
}

// Those whose agent has ended and that no other could take. A special queue is its own agent's alone.
void EventAgent::adoptThreads() {
    ThreadMgr *threads = threadMgr;
    if (threads != nullptr) {
        threads->forEachThread([this](ThreadData *thr) {
            if (thr->acceptsEvents() && !thr->isShared) {
                manageThreadData(thr);
            }
        });
    }
}

// The environment may have its thread listed by another agent, if this Java thread has worked for the
// application or was seen at its start. Two readers of one queue must not be.
bool EventAgent::listSpecialThread() {
    ThreadMgr *threads = threadMgr;
    if (threads == nullptr) {
        return false;
    }
    const ZykLockGuard guard(threads->destructionLock());
    ThreadData *special = threads->createSpecialEventQueue(env);
    if (special != nullptr) {
        special->share();
        if (!special->listed && threadList.prepend(special)) {
            special->setListed(true, hurriedBy());
        }
    }
    specialThreadData = special != nullptr && special->listed ? special : nullptr;
    return specialThreadData != nullptr;
}

// Unlists what the round holds of threads that have ended and are done with; true if there are any, which
// then tell by `listed`. All of them in one walk: there may be thousands of threads that stay.
bool EventAgent::unlistEnded(bool (*isDoneWith)(const ThreadData &thr)) {
    bool any = false;
    for (ThreadData *thr : round) {
        if (!thr->acceptsEvents() && isDoneWith(*thr)) {
            thr->setListed(false);
            any = true;
        }
    }
    if (any) {
        threadList.removeIf([](const ThreadData *thr) { return !thr->listed; });
    }
    return any;
}

// One that is not in the list any more.
void EventAgent::deleteThread(ThreadData *thr) {
    if (currentThread == thr) {
        currentThread = nullptr;
    }
    noteGrowth(-thr->takeReported());
    threadMgr->deleteThreadData(thr);
}

// The living go to another agent, or remain with the thread manager until one starts; it no longer knows the
// dead: they end here. Under the lock, since a thread that `manageThreadData` took back just now may be
// destroyed by its owner.
void EventAgent::releaseThreads() {
    ThreadMgr *threads = threadMgr;
    EventAgentHost *manager = eventAgentHost;
    if (threads != nullptr) {
        const ZykLockGuard guard(threads->destructionLock());
        while (ThreadData *thr = threadList.removeFirst()) {
            thr->hurries = nullptr; // its thread may be at it until `awaitDeparture`
            if (thr->acceptsEvents()) {
                thr->setListed(false);
                noteGrowth(-thr->takeReported());
                if (manager != nullptr) {
                    manager->manageThreadData(thr);
                }
            } else {
                deleteThread(thr);
            }
        }
    }
    noteGrowth(-int64_t{memoryTaken});
    memoryTaken = 0;
    currentThread = nullptr;
    specialThreadData = nullptr;
}

int32_t EventAgent::getNumberOfEvents() {
    ThreadMgr *threads = threadMgr;
    if (threads == nullptr) {
        return 0;
    }
    int32_t sum = 0;
    const ZykLockGuard guard(threads->destructionLock());
    ThreadRound all;
    all.take(threadList);
    for (const ThreadData *thr : all) {
        sum += thr->queueSize();
    }
    return sum;
}

// ---------------------------------------------------------------- after a reconnection

// The others may send once the leader has done what it can. Without a queue for the data it goes on trying.
void EventAgent::resendIfPending() {
    if (!resendInitialDataPending) {
        return;
    }
    resendInitialDataPending = false; // first: a loss during the resend asks for another
    const bool done = resendInitialData();
    if (!resendInitialDataPending) {
        eventAgentHost->setLeaderResent();
    }
    if (!done) {
        resendInitialDataPending = true;
    }
}

bool EventAgent::resendInitialData() {
    constexpr char SIGNATURE[] = "EventAgent::resendInitialData()";
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MIN, SIGNATURE);
    if (specialThreadData == nullptr && env != nullptr) {
        listSpecialThread();
    }
    ThreadData *special = specialThreadData;
    if (special == nullptr) {
        AM_TRACE(eaTracer, LGK_DEBUG_MIN, SIGNATURE,
                 "The special event queue is NULL, cannot resendInitData");
        return false;
    }
    if (special->eventQueue == nullptr) {
        AM_TRACE(eaTracer, LGK_DEBUG_MIN, SIGNATURE,
                 "Event Queue NULL for Special Event Queue Thread, TID: %d", special->threadId.get());
        return false;
    }
    while (const Event *evt = special->eventQueue->first()) {
        loseFirst(*special, *evt); // it was meant for the old connection
    }
    ProtocolVisitor::clearCommonNameCache();
    callSendAllClassEvents();
    if (resendHook != nullptr) {
        resendHook.get()(env);
    }
    return true;
}

// A Java half without that class is no error: its exceptions are cleared without a word.
void EventAgent::callSendAllClassEvents() {
    if (env == nullptr) {
        return;
    }
    const auto failed = [this] {
        const bool pending = env->ExceptionCheck() != JNI_FALSE;
        if (pending) {
            env->ExceptionClear();
        }
        return pending;
    };
    const LocalRef<jclass> consumer(env, env->FindClass(ENTRY_EXIT_CONSUMER_CLASS));
    if (failed() || !consumer) {
        return;
    }
    const jmethodID method = env->GetStaticMethodID(consumer.get(), "sendAllClassEvents", "()V");
    if (failed() || method == nullptr) {
        return;
    }
    env->CallStaticVoidMethod(consumer.get(), method);
    failed();
}
