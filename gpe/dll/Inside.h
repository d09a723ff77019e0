// Tells which threads are inside the agent, so that nothing is freed that one of them may still touch.
// Whoever wants to free something first takes it out of reach, then calls `awaitDeparture`, then frees it:
// a thread that came before the call may hold a pointer and is waited for, one that comes later finds none.
// Each thread has a word of its own and stores it plainly; the fence that this needs is forced upon all
// threads by the one who waits (membarrier). Where the kernel refuses that, every thread pays a fence.
// An event agent is inside all its life: its manager ends it before anything is freed. A network agent is
// inside only where it touches what could be freed, as it may be held up in the operating system.
#pragma once

#include <atomic>
#include <cstdint>

// The calling thread is inside while one lives. Nests.
class Inside {
public:
    Inside();
    ~Inside();
    Inside(const Inside &) = delete;
    Inside &operator=(const Inside &) = delete;

    // False if there was no memory to note it: the caller turns back.
    explicit operator bool() const { return noted; }

private:
    bool noted;
};

// Takes a thread that is inside out again while one lives: around a call into Java code of others and around
// a wait of unknown length. Nothing that was looked up before may be touched afterwards without a new look.
class Outside {
public:
    Outside();
    ~Outside();
    Outside(const Outside &) = delete;
    Outside &operator=(const Outside &) = delete;

private:
    int32_t depth;
};

constexpr int64_t DEPARTURE_PATIENCE_MS = 5000;

// Returns once every other thread that is inside has left or stepped out, at most 5 seconds later: then it
// is false, and what was to be freed has to be left alone. No lock may be held that a thread inside could
// wait for.
bool awaitDeparture();

// While one lives, all that its thread awaits takes no longer than one departure may: a stop frees several
// things.
class SharedPatience {
public:
    explicit SharedPatience(int64_t ms = DEPARTURE_PATIENCE_MS);
    ~SharedPatience();
    SharedPatience(const SharedPatience &) = delete;
    SharedPatience &operator=(const SharedPatience &) = delete;

private:
    int64_t left; // microseconds
    int64_t *const outer;
};

// Takes an object out of reach and deletes it when nobody can hold it any more.
template <typename Published>
void retire(Published &published) {
    auto *gone = published.get();
    published = nullptr;
    if (gone != nullptr && awaitDeparture()) {
        delete gone;
    }
}
