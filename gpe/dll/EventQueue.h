// The events of one thread that wait for their agent, each a block with its texts, in a chain of chunks. Who
// appends takes a lock, which nearly always is its own thread's alone; the one consumer reads past it and
// takes it only to give the last chunk back, so that an empty queue holds none. Chunks come from a pool that
// is shared by all queues.
#pragma once

#include "EventDraft.h"
#include "PlainLock.h"
#include "Relaxed.h"

#include <atomic>
#include <cstddef>
#include <cstdint>

struct EventChunk;

class EventQueue {
public:
    EventQueue() = default;
    ~EventQueue(); // destroys what is queued
    EventQueue(const EventQueue &) = delete;
    EventQueue &operator=(const EventQueue &) = delete;

    // Any thread: takes the draft's event over, behind all others; false, and nothing taken, if memory is
    // out.
    bool append(EventDraft &draft);
    // Any thread; a hint while others append.
    int32_t size() const { return static_cast<int32_t>(appended - removed); }

    // The rest is the consumer's.

    // The oldest event; null if there is none. It stands until it is removed. And the size of its block.
    Event *first();
    static size_t blockBytes(const Event &event);
    // Destroys the oldest, which `first` has given since the last removal.
    void removeFirst();
    // Puts it in front of all others; false, and nothing taken, if memory is out.
    bool prepend(EventDraft &draft);
    // Lays the oldest event aside, in order; `putBack` makes all that lie aside the oldest again. False, and
    // nothing done, if memory is out.
    bool setAside();
    void putBack();

private:
    struct Kept; // an event in a block of its own

    EventChunk *chunkFor(size_t bytes);
    static Kept *newKept(size_t bytes);
    bool giveBack(EventChunk *chunk);

    // Of those who append, behind the lock.
    PlainLock lock;
    EventChunk *tail = nullptr;
    Relaxed<uint32_t> appended; // events since the beginning, modulo 2^32

    [[maybe_unused]] char apart[64] = {}; // keeps the words of the two sides off one cache line

    // Of the consumer; those who append set `head` when they find the queue without a chunk.
    std::atomic<EventChunk *> head{nullptr};
    uint32_t readAt = 0;       // of `head`
    Relaxed<uint32_t> removed; // as `appended`
    Kept *kept = nullptr;      // read before the chunks
    Kept *aside = nullptr;
    Kept **asideEnd = &aside;
};
