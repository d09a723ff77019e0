// How events go unsent: from queues that are too long, and while the Publish Server is away.
#include "EventAgent.h"

#include "Event.h"
#include "MemoryMonitor.h"
#include "ProbeLgKit.h"
#include "ProtocolVisitor.h"
#include "ThreadData.h"

#include <algorithm>

namespace {

constexpr int32_t LONG_OUTAGE_QUEUE_LIMIT = 1000;
constexpr int32_t REPORTED_ITERATIONS = 5; // of an outage; then the log falls silent

} // namespace

int32_t EventAgent::dropRecordsFromQueue(ThreadData *thrData, bool addDropRec, ProtocolVisitor *visitor) {
    if (thrData == nullptr) {
        return 0;
    }
    if (thrData->eventQueue == nullptr) {
        messageError(1042, "Event Queue is NULL for Thread, TID: %d", thrData->threadId.get());
        return 0;
    }
    const int32_t length = thrData->queueSize();
    if (length == 0) {
        return 0;
    }
    drops = {};
    tempList.clear();
    const int32_t dropped =
        dropOldest(*thrData, length - (addDropRec ? queueLimit : keptWithoutPS()), addDropRec);
    thrData->eventQueue->prependAll(&tempList);
    if (addDropRec && visitor != nullptr && anyCounted()) {
        addDroppedEvent(*thrData, *visitor);
    }
    return dropped;
}

int32_t EventAgent::dropOldest(ThreadData &thrData, int32_t lookAt, bool countDrops) {
    int32_t dropped = 0;
    for (int32_t looked = 0; looked < lookAt; ++looked) {
        Event *evt = thrData.eventQueue->removeFirst();
        if (evt == nullptr) {
            break;
        }
        if (isProtectedType(*evt)) {
            tempList.append(evt);
            continue;
        }
        if (countDrops) {
            updateDropRecordCounters(*evt);
        }
        consume(thrData, evt);
        ++dropped;
    }
    return dropped;
}

void EventAgent::updateDropRecordCounters(const Event &evt) {
    if (evt.subType != Event::SUB_START && evt.subType != Event::SUB_END) {
        return;
    }
    const bool start = evt.subType == Event::SUB_START;
    switch (evt.type) {
    case Event::TYPE_METHOD:
        ++(start ? drops.methodStarts : drops.methodEnds);
        break;
    case Event::TYPE_SQL:
        ++(start ? drops.sqlStarts : drops.sqlEnds);
        break;
    default:
        ++(start ? drops.otherStarts : drops.otherEnds);
        break;
    }
}

bool EventAgent::anyCounted() const {
    return drops.methodStarts + drops.methodEnds + drops.sqlStarts + drops.sqlEnds + drops.otherStarts +
               drops.otherEnds >
           0;
}

// If the packet has no room for it, it opens the next one: at the head of the queue, and not yet charged.
void EventAgent::addDroppedEvent(ThreadData &thrData, ProtocolVisitor &visitor) {
    DroppedEvent *evt = new DroppedEvent(Event::SUB_ALONE);
    evt->threadId = thrData.threadId;
    evt->otherStarts = drops.otherStarts;
    evt->otherEnds = drops.otherEnds;
    evt->methodStarts = drops.methodStarts;
    evt->methodEnds = drops.methodEnds;
    evt->sqlStarts = drops.sqlStarts;
    evt->sqlEnds = drops.sqlEnds;
    char *mark = visitor.getCursor();
    evt->addToBuffer(&visitor);
    if (!visitor.hasOverflowed()) {
        delete evt;
        return;
    }
    visitor.setCursor(mark);
    thrData.takeBackConsumed(*evt);
    thrData.eventQueue->prepend(evt);
}

// In turbo mode application threads wait until memory is low again: with nobody to send to, only dropping
// brings that about.
int32_t EventAgent::keptWithoutPS() const {
    const MemoryMonitor *monitor = memoryMonitor;
    return monitor != nullptr && monitor->inTurboMode() ? 0 : psDownQueueLimit;
}

void EventAgent::dropRecordsOnPSDown() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MAX, "EventAgent::dropRecordsOnPSDown()");
    psDownIterations = std::min(psDownIterations, INT32_MAX - 1) + 1;
    if (psDownIterations >= psDownIterationLimit) {
        psDownQueueLimit = LONG_OUTAGE_QUEUE_LIMIT;
    }
    int32_t total = 0;
    std::vector<ThreadData *> dead;
    for (ThreadData *thr : takeRound()) {
        if (!thr->acceptsEvents()) {
            dead.push_back(thr);
        } else if (thr->queueSize() > keptWithoutPS()) {
            total += dropRecordsFromQueue(thr, false, nullptr);
        }
    }
    for (ThreadData *thr : dead) {
        const int32_t queued = thr->queueSize();
        const uint32_t threadId = thr->threadId;
        total += queued;
        deleteThread(thr);
        if (psDownIterations <= REPORTED_ITERATIONS) {
            AM_TRACE(eaTracer, LGK_DEBUG_MID, "EventAgent::dropRecordsOnPSDown()",
                     "Deleted %d (all) events in dead thread TID: %d", queued, threadId);
        }
    }
    reportDropsOnPSDown(total);
}

void EventAgent::reportDropsOnPSDown(int32_t total) const {
    if (psDownIterations < REPORTED_ITERATIONS) {
        AM_TRACE(eaTracer, LGK_DEBUG_MID, "EventAgent::dropRecordsOnPSDown()",
                 "OverAll events dropped/deleted when PS down: %d", total);
    } else if (psDownIterations == REPORTED_ITERATIONS && total >= 1) {
        messageWarn(1043, "OverAll events dropped/deleted when PS down: %d, log message now off", total);
    }
}
