#include "Inside.h"

#include "PlainLock.h"
#include "platform.h"

#include <algorithm>
#include <cstdlib>
#include <linux/membarrier.h>
#include <mutex>
#include <new>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr int POLL_MS = 1;

// One for each thread that has ever been inside. They are handed on from ended threads to new ones and never
// freed, so that a walk over them needs no lock.
struct Slot {
    std::atomic<uint32_t> visits{0}; // odd while the thread is inside; written by it alone
    int32_t depth = 0;               // likewise
    Slot *next = nullptr;            // of all slots, newest first; fixed once published
    Slot *nextFree = nullptr;        // guarded by `slotsLock`
    char apart[64] = {};             // keeps the words of two threads off one cache line
};

std::atomic<Slot *> allSlots{nullptr};
Slot *freeSlots = nullptr;
PlainLock slotsLock;
pthread_key_t slotKey; // its destructor hands the slot of an ended thread back
bool slotKeyMade = false;

thread_local Slot *ownSlot = nullptr;
thread_local int64_t *sharedPatience = nullptr; // microseconds left, of the outermost that shares

// The thread sanitiser knows neither of the kernel's fence nor of a plain one.
#if defined(__SANITIZE_THREAD__)
long membarrier(int) {
    return -1;
}
void fence() {
    static std::atomic<int> word{0};
    word.fetch_add(1, std::memory_order_seq_cst);
}
#else
long membarrier(int command) {
    return syscall(SYS_membarrier, command, 0, 0);
}
void fence() {
    std::atomic_thread_fence(std::memory_order_seq_cst);
}
#endif

const bool threadsFence = membarrier(MEMBARRIER_CMD_REGISTER_PRIVATE_EXPEDITED) != 0;

void releaseSlot(void *given) {
    auto *slot = static_cast<Slot *>(given);
    ownSlot = nullptr;
    const std::lock_guard<PlainLock> guard(slotsLock);
    slot->nextFree = freeSlots;
    freeSlots = slot;
}

// For the holder of `slotsLock`. Null when memory is out.
Slot *takeSlot() {
    if (!slotKeyMade) {
        slotKeyMade = pthread_key_create(&slotKey, releaseSlot) == 0;
    }
    if (!slotKeyMade) {
        return nullptr;
    }
    if (Slot *slot = freeSlots) {
        freeSlots = slot->nextFree;
        return slot;
    }
    auto *slot = new (std::nothrow) Slot;
    if (slot != nullptr) {
        slot->next = allSlots.load(std::memory_order_relaxed);
        allSlots.store(slot, std::memory_order_release);
    }
    return slot;
}

Slot *makeOwnSlot() {
    Slot *slot = nullptr;
    {
        const std::lock_guard<PlainLock> guard(slotsLock);
        slot = takeSlot();
    }
    if (slot == nullptr) {
        return nullptr;
    }
    if (pthread_setspecific(slotKey, slot) != 0) {
        releaseSlot(slot);
        return nullptr;
    }
    ownSlot = slot;
    return slot;
}

void enter(Slot &slot) {
    slot.visits.store(slot.visits.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    if (threadsFence) {
        fence();
    } else {
        std::atomic_signal_fence(std::memory_order_seq_cst);
    }
}

void leave(Slot &slot) {
    slot.visits.store(slot.visits.load(std::memory_order_relaxed) + 1, std::memory_order_release);
}

// False if the kernel refused, though it promised: then nobody can tell who is inside.
bool forceFences() {
    fence();
    return threadsFence || membarrier(MEMBARRIER_CMD_PRIVATE_EXPEDITED) == 0;
}

bool isIn(uint32_t visits) {
    return (visits & 1U) != 0;
}

// One visit that was under way is waited for, not the ones that follow it.
bool awaitEnd(const Slot &slot, int64_t deadline) {
    const uint32_t seen = slot.visits.load(std::memory_order_acquire);
    while (isIn(seen) && slot.visits.load(std::memory_order_acquire) == seen) {
        if (monotonicMicros() >= deadline) {
            return false;
        }
        thread_sleep(POLL_MS);
    }
    return true;
}

} // namespace

Inside::Inside() : noted(true) {
    Slot *slot = ownSlot != nullptr ? ownSlot : makeOwnSlot();
    if (slot == nullptr) {
        noted = false;
    } else if (slot->depth++ == 0) {
        enter(*slot);
    }
}

Inside::~Inside() {
    if (noted && --ownSlot->depth == 0) {
        leave(*ownSlot);
    }
}

Outside::Outside() : depth(0) {
    Slot *slot = ownSlot;
    if (slot != nullptr && slot->depth > 0) {
        depth = slot->depth;
        slot->depth = 0;
        leave(*slot);
    }
}

Outside::~Outside() {
    if (depth > 0) {
        ownSlot->depth = depth;
        enter(*ownSlot);
    }
}

SharedPatience::SharedPatience(int64_t ms) : left(ms * MICROS_PER_MS), outer(sharedPatience) {
    if (outer == nullptr) {
        sharedPatience = &left;
    }
}

SharedPatience::~SharedPatience() {
    sharedPatience = outer;
}

bool awaitDeparture() {
    int64_t own = DEPARTURE_PATIENCE_MS * MICROS_PER_MS;
    int64_t &left = sharedPatience != nullptr ? *sharedPatience : own;
    const int64_t deadline = monotonicMicros() + left;
    bool allLeft = forceFences();
    for (Slot *slot = allSlots.load(std::memory_order_acquire); slot != nullptr; slot = slot->next) {
        allLeft = (slot == ownSlot || awaitEnd(*slot, deadline)) && allLeft;
    }
    left = std::max<int64_t>(deadline - monotonicMicros(), 0);
    return allLeft;
}
