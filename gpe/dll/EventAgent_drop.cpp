// How events go unsent: from queues that are too long, and while the Publish Server is away.
#include "EventAgent.h"

#include "Event_types.h"
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
    const int32_t dropped =
        dropOldest(*thrData, length - (addDropRec ? queueLimit : keptWithoutPS()), addDropRec);
    thrData->eventQueue->putBack();
    if (addDropRec && visitor != nullptr && drops.sum() > 0) {
        addDroppedEvent(*thrData, *visitor);
    }
    return dropped;
}

int32_t EventAgent::dropOldest(ThreadData &thrData, int32_t lookAt, bool countDrops) {
    EventQueue &queue = *thrData.eventQueue;
    int32_t dropped = 0;
    for (int32_t looked = 0; looked < lookAt; ++looked) {
        const Event *evt = queue.first();
        if (evt == nullptr) {
            break;
        }
        if (isProtectedType(*evt)) {
            if (!queue.setAside()) {
                loseFirst(thrData, *evt);
            }
            continue;
        }
        if (countDrops) {
            updateDropRecordCounters(*evt);
            consumeFirst(thrData, *evt);
        } else {
            loseFirst(thrData, *evt);
        }
        ++dropped;
    }
    return dropped;
}

void EventAgent::updateDropRecordCounters(const Event &evt) {
    if (exactDrops) {
        drops.countLoss(evt);
    } else {
        drops.count(evt);
    }
}

// If the packet has no room for it, it opens the next one: at the head of the queue, and not yet charged.
void EventAgent::addDroppedEvent(ThreadData &thrData, ProtocolVisitor &visitor) {
    Draft<DroppedEvent> draft(Event::SUB_ALONE);
    draft->threadId = thrData.threadId;
    drops.fill(*draft);
    char *mark = visitor.getCursor();
    draft->addToBuffer(&visitor);
    if (!visitor.hasOverflowed()) {
        inPacket.add(drops);
        return;
    }
    visitor.setCursor(mark);
    if (!thrData.eventQueue->prepend(draft)) {
        lossAccount.enter(drops);
        return;
    }
    thrData.takeBackConsumed(*draft);
}

// On the special queue: what the account holds was lost on the way, from whichever thread it came.
void EventAgent::tellLosses() {
    if (!exactDrops || lossAccount.isEmpty() || (specialThreadData == nullptr && !listSpecialThread())) {
        return;
    }
    ThreadData *special = specialThreadData;
    Draft<DroppedEvent> draft(Event::SUB_ALONE);
    draft->threadId = special->threadId;
    lossAccount.take().fill(*draft);
    special->appendEvent(&draft);
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
    round.take(threadList);
    for (ThreadData *thr : round) {
        if (thr->acceptsEvents() && thr->queueSize() > keptWithoutPS()) {
            total += dropRecordsFromQueue(thr, false, nullptr);
        }
    }
    if (unlistEnded([](const ThreadData &) { return true; })) {
        for (ThreadData *thr : round) {
            total += thr->listed ? 0 : deleteDeadThread(thr);
        }
    }
    reportDropsOnPSDown(total);
}

// Gives the number of events that went with it.
int32_t EventAgent::deleteDeadThread(ThreadData *thr) {
    const int32_t queued = thr->queueSize();
    const uint32_t threadId = thr->threadId;
    deleteThread(thr);
    if (psDownIterations <= REPORTED_ITERATIONS) {
        AM_TRACE(eaTracer, LGK_DEBUG_MID, "EventAgent::dropRecordsOnPSDown()",
                 "Deleted %d (all) events in dead thread TID: %d", queued, threadId);
    }
    return queued;
}

void EventAgent::reportDropsOnPSDown(int32_t total) const {
    if (psDownIterations < REPORTED_ITERATIONS) {
        AM_TRACE(eaTracer, LGK_DEBUG_MID, "EventAgent::dropRecordsOnPSDown()",
                 "OverAll events dropped/deleted when PS down: %d", total);
    } else if (psDownIterations == REPORTED_ITERATIONS && total >= 1) {
        messageWarn(1043, "OverAll events dropped/deleted when PS down: %d, log message now off", total);
    }
}
