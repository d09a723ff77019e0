#include "EventQueue.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <utility>

namespace {

// In front of each event.
struct alignas(8) BlockHead {
    explicit BlockHead(size_t blockBytes) : bytes(static_cast<uint32_t>(blockBytes)) {}
    uint32_t bytes; // of the event and its texts, a multiple of 8
    Event *event() { return reinterpret_cast<Event *>(this + 1); }
};

size_t roundedUp(size_t bytes) {
    return (bytes + 7) / 8 * 8;
}

} // namespace

struct alignas(8) EventChunk {
    std::atomic<EventChunk *> next{nullptr};
    std::atomic<uint32_t> written{0}; // bytes that the consumer may read
    const uint32_t capacity;

    explicit EventChunk(uint32_t bytes) : capacity(bytes) {}
    char *bytes() { return reinterpret_cast<char *>(this + 1); }
};

namespace {

BlockHead *blockAt(EventChunk &chunk, uint32_t offset) {
    return reinterpret_cast<BlockHead *>(chunk.bytes() + offset);
}

} // namespace

struct EventQueue::Kept {
    Kept *next;
    BlockHead head;
};

size_t EventQueue::blockBytes(const Event &event) {
    return reinterpret_cast<const BlockHead *>(&event)[-1].bytes;
}

// ---------------------------------------------------------------- chunks

namespace {

size_t bytesOf(const EventChunk &chunk) {
    return chunk.capacity + sizeof(EventChunk);
}

// A queue begins with a small one, since most threads have little to tell, and each next one is twice as
// large: never is more than half of a queue's memory room to come.
constexpr size_t SMALLEST_CHUNK = 1024;
constexpr int CHUNK_SIZES = 6; // up to 32 KB
constexpr size_t MOST_POOLED = 2 << 20;

// Chunks that wait for their next queue.
class Pool {
public:
    void *take(int sizeClass) {
        const std::lock_guard<PlainLock> guard(lock);
        EventChunk *chunk = free[sizeClass];
        if (chunk != nullptr) {
            free[sizeClass] = chunk->next.load(std::memory_order_relaxed);
            pooled -= bytesOf(*chunk);
        }
        return chunk;
    }
    bool give(int sizeClass, EventChunk *chunk) {
        const std::lock_guard<PlainLock> guard(lock);
        if (pooled + bytesOf(*chunk) > MOST_POOLED) {
            return false;
        }
        chunk->next.store(free[sizeClass], std::memory_order_relaxed);
        free[sizeClass] = chunk;
        pooled += bytesOf(*chunk);
        return true;
    }

private:
    PlainLock lock;
    EventChunk *free[CHUNK_SIZES] = {};
    size_t pooled = 0; // bytes
};

Pool pool;

// CHUNK_SIZES for a size that is none of the pool.
int sizeClassOf(size_t bytes) {
    int sizeClass = 0;
    while (sizeClass < CHUNK_SIZES && bytes != SMALLEST_CHUNK << sizeClass) {
        ++sizeClass;
    }
    return sizeClass;
}

// Null if memory is out. One behind `last`, which is null for the first. What fits none has one of its own.
EventChunk *newChunk(size_t bytes, const EventChunk *last) {
    const size_t wanted = bytes + sizeof(EventChunk);
    const size_t before = last != nullptr ? bytesOf(*last) : 0;
    int sizeClass = 0;
    while (sizeClass < CHUNK_SIZES - 1 && SMALLEST_CHUNK << sizeClass < std::max(wanted, 2 * before)) {
        ++sizeClass;
    }
    const size_t size = std::max(wanted, SMALLEST_CHUNK << sizeClass);
    void *place = size == SMALLEST_CHUNK << sizeClass ? pool.take(sizeClass) : nullptr;
    if (place == nullptr) {
        place = malloc(size);
    }
    if (place == nullptr) {
        return nullptr;
    }
    return new (place) EventChunk(static_cast<uint32_t>(size - sizeof(EventChunk)));
}

void freeChunk(EventChunk *chunk) {
    const int sizeClass = sizeClassOf(bytesOf(*chunk));
    if (sizeClass == CHUNK_SIZES || !pool.give(sizeClass, chunk)) {
        free(chunk);
    }
}

} // namespace

// ---------------------------------------------------------------- those who append

bool EventQueue::append(EventDraft &draft) {
    const size_t bytes = roundedUp(draft.blockBytes());
    const std::lock_guard<PlainLock> guard(lock);
    EventChunk *chunk = chunkFor(sizeof(BlockHead) + bytes);
    if (chunk == nullptr) {
        return false;
    }
    const uint32_t at = chunk->written.load(std::memory_order_relaxed);
    draft.moveTo((new (chunk->bytes() + at) BlockHead(bytes))->event());
    appended += 1;
    chunk->written.store(at + static_cast<uint32_t>(sizeof(BlockHead) + bytes), std::memory_order_release);
    return true;
}

// The last chunk if it has room, else a new one behind it.
EventChunk *EventQueue::chunkFor(size_t bytes) {
    if (tail != nullptr && tail->capacity - tail->written.load(std::memory_order_relaxed) >= bytes) {
        return tail;
    }
    EventChunk *chunk = newChunk(bytes, tail);
    if (chunk == nullptr) {
        return nullptr;
    }
    (tail != nullptr ? tail->next : head).store(chunk, std::memory_order_release);
    tail = chunk;
    return chunk;
}

// ---------------------------------------------------------------- the consumer

EventQueue::~EventQueue() {
    putBack();
    while (first() != nullptr) {
        removeFirst();
    }
}

Event *EventQueue::first() {
    if (kept != nullptr) {
        return kept->head.event();
    }
    while (EventChunk *chunk = head.load(std::memory_order_acquire)) {
        // In this order: what has a successor is not written any more.
        EventChunk *next = chunk->next.load(std::memory_order_acquire);
        if (readAt < chunk->written.load(std::memory_order_acquire)) {
            return blockAt(*chunk, readAt)->event();
        }
        if (next != nullptr) {
            head.store(next, std::memory_order_relaxed);
            readAt = 0;
            freeChunk(chunk);
        } else if (giveBack(chunk)) {
            return nullptr;
        }
    }
    return nullptr;
}

// The last chunk of a queue that has been read to its end; false if something was appended meanwhile.
bool EventQueue::giveBack(EventChunk *chunk) {
    {
        const std::lock_guard<PlainLock> guard(lock);
        if (chunk != tail || readAt < chunk->written.load(std::memory_order_relaxed)) {
            return false;
        }
        tail = nullptr;
        head.store(nullptr, std::memory_order_relaxed);
        readAt = 0;
    }
    freeChunk(chunk);
    return true;
}

void EventQueue::removeFirst() {
    BlockHead *block = kept != nullptr ? &kept->head : blockAt(*head.load(std::memory_order_relaxed), readAt);
    const size_t bytes = block->bytes;
    block->event()->~Event();
    removed += 1;
    if (Kept *gone = kept) {
        kept = gone->next;
        free(gone);
    } else {
        readAt += static_cast<uint32_t>(sizeof(BlockHead) + bytes);
    }
}

// Null if memory is out.
EventQueue::Kept *EventQueue::newKept(size_t bytes) {
    void *place = malloc(sizeof(Kept) + bytes);
    return place != nullptr ? new (place) Kept{nullptr, BlockHead(bytes)} : nullptr;
}

bool EventQueue::prepend(EventDraft &draft) {
    Kept *node = newKept(roundedUp(draft.blockBytes()));
    if (node == nullptr) {
        return false;
    }
    draft.moveTo(node->head.event());
    node->next = kept;
    kept = node;
    removed -= 1;
    return true;
}

bool EventQueue::setAside() {
    Kept *node = kept;
    if (node != nullptr) {
        kept = std::exchange(node->next, nullptr);
    } else {
        const Event *event = first();
        const size_t bytes = blockBytes(*event);
        node = newKept(bytes);
        if (node == nullptr) {
            return false;
        }
        memcpy(static_cast<void *>(node->head.event()), static_cast<const void *>(event), bytes);
        readAt += static_cast<uint32_t>(sizeof(BlockHead) + bytes);
    }
    *asideEnd = node;
    asideEnd = &node->next;
    return true;
}

void EventQueue::putBack() {
    *asideEnd = kept;
    kept = aside;
    aside = nullptr;
    asideEnd = &aside;
}
