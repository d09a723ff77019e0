// How events become a packet: threads in a round, each queue until it is empty or the packet full.
#include "EventAgent.h"

#include "Event.h"
#include "ProbeLgKit.h"
#include "ProtocolVisitor.h"
#include "ThreadData.h"

#include <algorithm>

namespace {

constexpr int32_t HEADER_SIZE = 7;
constexpr int32_t RESERVE = 512; // bytes at the end of the buffer that stay unused

} // namespace

int32_t EventAgent::prepare2send() {
    AM_TRACE_SCOPE(eaTracer, LGK_DEBUG_MAX, "EventAgent::prepare2send()");
    char *buffer = packetBuffer.get();
    char *records = buffer + HEADER_SIZE;
    ProtocolVisitor visitor(records, records, buffer + int64_t{packetSizeKB} * 1024 - RESERVE, env);
    inPacket = {};
    const int32_t recordCount = walkRound(visitor);
    if (recordCount == 0) {
        return 0;
    }
    ProtocolVisitor header(buffer, buffer, records, env);
    header.addPacketHeaderRecord(recordCount);
    return static_cast<int32_t>(visitor.getCursor() - buffer);
}

// A full packet leaves `currentThread` where it is, so that the next one goes on with the same thread. A dead
// thread gets no more events: found dead and then empty, it is done with.
int32_t EventAgent::walkRound(ProtocolVisitor &visitor) {
    round.take(threadList);
    if (round.empty()) {
        return 0;
    }
    ThreadData **const found = std::find(round.begin(), round.end(), currentThread);
    ThreadData **const first = found != round.end() ? found : round.begin();
    ThreadData **at = first;
    int32_t recordCount = 0;
    do {
        currentThread = *at;
        recordCount += processThread(visitor);
        if (visitor.hasOverflowed()) {
            break;
        }
        at = at + 1 != round.end() ? at + 1 : round.begin();
        currentThread = *at;
    } while (at != first);
    if (unlistEnded([](const ThreadData &thr) { return thr.queueSize() == 0; })) {
        for (ThreadData *thr : round) {
            if (!thr->listed) {
                deleteThread(thr);
            }
        }
    }
    return recordCount;
}

// Gives the number of records written, the one that tells of drops included.
int32_t EventAgent::processThread(ProtocolVisitor &visitor) {
    ThreadData &thr = *currentThread;
    const char *mark = visitor.getCursor();
    int32_t dropped = 0;
    if (thr.queueSize() > queueLimit) {
        dropped = dropRecordsFromQueue(&thr, true, &visitor);
    }
    const int32_t dropRecords = visitor.getCursor() != mark ? 1 : 0;
    dropped += thr.takeDroppedAtAppend();
    if (exactDrops) {
        lossAccount.enter(thr.takeRefused());
    }
    if (dropped > 0) {
        messageInfo(1044, "Events dropped %d for thread %s as they exceeded event queue limit of %d", dropped,
                    static_cast<const char *>(thr.threadName.load(std::memory_order_acquire)), queueLimit);
    }
    if (thr.eventQueue == nullptr) {
        AM_TRACE(eaTracer, LGK_DEBUG_MID, "EventAgent::processThread( ProtocolVisitor *visitor )",
                 "Event Queue is NULL for Thread, TID: %d", thr.threadId.get());
        return dropRecords;
    }
    return dropRecords + processQueue(*thr.eventQueue, visitor);
}

// An event that does not fit stays where it is.
int32_t EventAgent::processQueue(EventQueue &queue, ProtocolVisitor &visitor) {
    int32_t count = 0;
    while (Event *evt = queue.first()) {
        const bool added = addEventToBuffer(*evt, visitor);
        if (visitor.hasOverflowed()) {
            AM_TRACE(eaTracer, LGK_DEBUG_MAX, "EventAgent::processQueueAux( queue, visitor )",
                     "overflow exit with %d", count);
            return count;
        }
        if (added) {
            ++count;
            if (exactDrops) {
                inPacket.countLoss(*evt);
            }
            consumeFirst(*currentThread, *evt);
        } else {
            loseFirst(*currentThread, *evt);
        }
    }
    return count;
}

// True if a whole record was added. Otherwise the packet is as it was; the visitor's overflow flag then
// stands for an event that has to wait for the next packet.
bool EventAgent::addEventToBuffer(Event &evt, ProtocolVisitor &visitor) {
    char *mark = visitor.getCursor();
    const bool written = evt.addToBuffer(&visitor);
    if (written && !visitor.hasOverflowed()) {
        return true;
    }
    if (visitor.hasOverflowed() && mark == visitor.getStart()) {
        traceError("Event Agent buffer is too small. need %d bytes more. EVENT DROPPED.\nConsider increasing "
                   "internal.probe.event.packet.size property in file runtime/*/datacollector.properties",
                   static_cast<int>(visitor.getCursor() - visitor.getLimit()));
        visitor.clearOverflow();
    }
    visitor.setCursor(mark);
    return false;
}

// Of the thread's queue.
void EventAgent::consumeFirst(ThreadData &thr, const Event &first) {
    thr.addToConsumed(first);
    thr.eventQueue->removeFirst();
}

// It is destroyed unsent.
void EventAgent::loseFirst(ThreadData &thr, const Event &first) {
    lossAccount.enter(first);
    consumeFirst(thr, first);
}
