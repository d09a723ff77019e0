#include "ThreadData.h"

#include "Event.h"
#include "Event_types.h"
#include "Pause.h"
#include "ProbeLgKit.h"
#include "PropertyMgr.h"
#include "VirtualThreads.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>

Relaxed<ThreadKeeper *> threadKeeper(nullptr);
Relaxed<void (*)(int64_t bytes)> growthHook(nullptr);
Relaxed<int32_t> growthPortion(16384);

namespace {

bool isClassOrMethod(const Event &evt) {
    return evt.type == Event::TYPE_CLASS || evt.type == Event::TYPE_METHOD;
}

// About what a record takes, with its queue, its lock and its place in the lists.
constexpr int32_t VIRTUAL_RECORD_BYTES = 768;
// A virtual thread may end before it has queued much: it reports at once what others gather.
constexpr int32_t VIRTUAL_PORTION = 1024;

int32_t queueLimit() {
    static const int32_t limit = std::max(intProperty("internal.probe.event.queue.size.limit", 5000), 0);
    return limit;
}

// Several threads write to a special queue: one at a time, since the counters have one writer.
ZykLock &sharedLock() {
    static StaticZykLock lock;
    return lock;
}

} // namespace

ThreadData::ThreadData(JNIEnv *env) : NamedObject("ThreadData"), envId(env) {
    initialize();
}

ThreadData::~ThreadData() {
    if (acceptsEvents()) {
        const ThreadKeeper *keeper = threadKeeper;
        if (keeper != nullptr && keeper->isStarted()) {
            char text[91];
            snprintf(text, sizeof(text), "Thread being deleted even before it died TID: %u", threadId.get());
            error(__FILE_NAME__, __LINE__, text);
        }
        deleteInFlightData();
    }
    while (const Event *evt = eventQueue != nullptr ? eventQueue->first() : nullptr) {
        lossAccount.enter(*evt);
        eventQueue->removeFirst();
    }
    lossAccount.enter(takeRefused());
    delete eventQueue;
    delete known;
    releaseVirtual(virtualThread);
    free(threadName.load());
    free(groupName.load());
    free(pageName);
}

void ThreadData::initialize() {
    if (eventQueue == nullptr) {
        eventQueue = new (std::nothrow) EventQueue;
    }
    memoryLimitMarkerSent = false;
    acceptingNewRequests = true;
    isAlive = true;
}

bool ThreadData::appendEvent(EventDraft *evt) {
    const ZykLockGuard writer(isShared ? &sharedLock() : nullptr);
    if (evt == nullptr || eventQueue == nullptr || !acceptsEvents()) {
        reportRefusal(evt);
        if (evt != nullptr) {
            lossAccount.enter(evt->event());
        }
        return false;
    }
    const Event &event = evt->event();
    const int32_t limit = queueLimit();
    const int32_t size = eventQueue->size();
    if (size >= limit && !isProtectedType(event)) {
        refuse(event);
        hurryAgent();
        return false;
    }
    if (size < limit) {
        droppedMarkerSent = false;
    }
    addToProduced(event);
    reportGrowth(event.charge());
    if (eventQueue->append(*evt)) {
        if (size >= limit / 4) {
            hurryAgent();
        }
        return true;
    }
    takeBackProduced(event);
    reportGrowth(-event.charge());
    lossAccount.enter(event);
    return false;
}

// The agent's pause outlives whoever is inside here.
void ThreadData::hurryAgent() {
    Pause *pause = hurries.load(std::memory_order_acquire);
    if (pause != nullptr) {
        pause->hurry();
    }
}

bool queuesWakeAgents() {
    return boolProperty("internal.probe.queue.wakeup", false);
}

// In portions, so that the common word is touched once in many events. The agent may take `unreportedBytes`
// away at any moment: it is read once, so that both accounts get the same figure.
void ThreadData::reportGrowth(int32_t bytes) {
    const int32_t portion = unreportedBytes + bytes;
    if (portion < growthPortion && (portion < VIRTUAL_PORTION || !isVirtualKey(envId))) {
        unreportedBytes = portion;
        return;
    }
    unreportedBytes = 0;
    void (*const tell)(int64_t) = growthHook;
    if (tell != nullptr) {
        reportedBytes.fetch_add(portion, std::memory_order_relaxed);
        tell(portion);
    }
}

void ThreadData::chargeRecord() {
    bytesAddedOther += static_cast<uint32_t>(VIRTUAL_RECORD_BYTES);
    reportGrowth(VIRTUAL_RECORD_BYTES);
}

// The marker tells the receiver that data is missing here; the agent tells how much.
void ThreadData::refuse(const Event &evt) {
    droppedAtAppend += 1;
    const DropFigures::Kind kind = lossKind(evt);
    if (kind != DropFigures::KINDS) {
        refused[kind] += 1;
    }
    if (!droppedMarkerSent) {
        Draft<DroppedEvent> marker(Event::SUB_ALONE);
        droppedMarkerSent = appendEvent(&marker);
    }
}

// With the thread's number, unlike the one at the queue's limit. False when memory is out.
bool ThreadData::appendGapMarker() {
    Draft<DroppedEvent> marker(Event::SUB_ALONE);
    marker->threadId = threadId;
    return appendEvent(&marker);
}

void ThreadData::refuseNewRequests() {
    acceptingNewRequests = false;
    appendGapMarker();
}

int32_t ThreadData::takeDroppedAtAppend() {
    const int32_t count = droppedAtAppend;
    if (count <= 0) {
        return 0;
    }
    droppedAtAppend = 0;
    return count;
}

DropFigures ThreadData::takeRefused() {
    DropFigures figures;
    for (int kind = 0; kind < DropFigures::KINDS; ++kind) {
        const uint32_t now = refused[kind];
        figures.counts[kind] = now - refusedTaken[kind];
        refusedTaken[kind] = now;
    }
    return figures;
}

void ThreadData::reportRefusal(const EventDraft *evt) const {
    if (eventQueue == nullptr) {
        traceWarn("Append Event failed evtQueue is NULL ");
    } else if (evt == nullptr) {
        traceWarn("Append Event failed Evt is NULL ");
    } else {
        traceWarn("Append Event Thread is dead: %d, EvtType: %d Evt SubType: %d TID: %d", acceptsEvents(),
                  static_cast<int>(evt->event().type), static_cast<int>(evt->event().subType),
                  threadId.get());
    }
}

void ThreadData::resetOnThreadEnd() {
    ThreadKeeper *keeper = threadKeeper;
    if (keeper != nullptr && keeper->updateOnThreadEnd(envId)) {
        deleteInFlightData();
    }
    isAlive.store(false, std::memory_order_release);
}

void ThreadData::deleteInFlightData() {
    free(inFlightBuffer1);
    free(inFlightBuffer2);
    inFlightBuffer1 = nullptr;
    inFlightBuffer2 = nullptr;
    threadSuspendedFlag = false;
    threadEndedFlag = false;
    sqlWrapperDepth = 0;
    requestDepth = 0;
}

int32_t ThreadData::queueSize() const {
    if (eventQueue == nullptr) {
        char text[91];
        snprintf(text, sizeof(text), "Event Queue is NULL, check.. EvtQueue: %d, TID: %u", 0, threadId.get());
        error(__FILE_NAME__, __LINE__, text);
        return 0;
    }
    return eventQueue->size();
}

void ThreadData::addToProduced(const Event &evt) {
    (isClassOrMethod(evt) ? bytesAddedClassMethod : bytesAddedOther) += static_cast<uint32_t>(evt.charge());
}

void ThreadData::takeBackProduced(const Event &evt) {
    (isClassOrMethod(evt) ? bytesAddedClassMethod : bytesAddedOther) -= static_cast<uint32_t>(evt.charge());
}

void ThreadData::addToConsumed(const Event &evt) {
    (isClassOrMethod(evt) ? bytesConsumedClassMethod : bytesConsumedOther) +=
        static_cast<uint32_t>(evt.charge());
}

void ThreadData::takeBackConsumed(const Event &evt) {
    (isClassOrMethod(evt) ? bytesConsumedClassMethod : bytesConsumedOther) -=
        static_cast<uint32_t>(evt.charge());
}

uint32_t ThreadData::bytesQueued() const {
    return bytesAddedOther + bytesAddedClassMethod - bytesConsumedOther - bytesConsumedClassMethod;
}
