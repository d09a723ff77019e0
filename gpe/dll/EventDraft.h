// An event in the making: it stands on the stack of the thread that makes it, its texts behind it, until a
// queue copies both as one block. Texts that exceed the stack's room move to the heap meanwhile. One that was
// not handed over is destroyed with its draft.
#pragma once

#include "Event.h"

#include <cstddef>
#include <cstdint>
#include <new>

class EventDraft {
public:
    EventDraft(const EventDraft &) = delete;
    EventDraft &operator=(const EventDraft &) = delete;

    Event &event() { return *made; }
    const Event &event() const { return *made; }

    // Room for `bytes` behind the texts so far, `alignment` (1 to 8) bytes aligned; null if memory is out. It
    // is used by `keep`, and moves with the next call.
    char *room(size_t bytes, size_t alignment = 1);
    // Makes `field`, one of the event or of an array among its texts, tell of the first `bytes` of the room.
    // The room has to hold one more: a NUL is put there.
    void keep(Text &field, size_t bytes);

    // Both in one step; false, and `field` as it was, if memory is out.
    bool put(Text &field, const void *bytes, size_t count, size_t alignment = 1);
    // Makes `field` an array of `count` null texts.
    bool putTexts(Text &field, int32_t count);
    // What `field`, of the event, tells of.
    const char *text(const Text &field) const;
    // One of the array `field`; moves with the next `room`.
    Text &textAt(const Text &field, int32_t index);

    // What a block takes, and its copy into a place of that size and aligned to 8 bytes. The copy owns what
    // the event owned.
    size_t blockBytes() const { return ownBytes + used; }
    Event *moveTo(void *place);

protected:
    EventDraft(Event *event, size_t eventBytes, char *inlineTexts, size_t inlineBytes)
        : made(event), ownBytes(eventBytes), texts(inlineTexts), capacity(inlineBytes) {}
    ~EventDraft();

private:
    bool grow(size_t wanted);
    ptrdiff_t placeOf(const Text &field) const;

    Event *const made;
    const size_t ownBytes; // of the event alone
    char *texts;           // inline, or from malloc once they have grown
    size_t capacity;
    size_t used = 0;
    bool onHeap = false;
    bool moved = false; // the event lives in a block now
};

template <typename E>
class Draft : public EventDraft {
public:
    template <typename... Args>
    explicit Draft(Args... args)
        : EventDraft(new (place) E(args...), sizeof(E), inlineTexts, sizeof(inlineTexts)) {}

    E &operator*() { return static_cast<E &>(event()); }
    E *operator->() { return &**this; }

private:
    static constexpr size_t STACK_BYTES = 4096; // of a native's stack; only what is used is touched

    alignas(8) char place[sizeof(E)];
    char inlineTexts[STACK_BYTES - sizeof(E)]; // right behind the event, as in a block
};
