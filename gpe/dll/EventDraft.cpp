#include "EventDraft.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace {

constexpr size_t MOST = UINT32_MAX / 4; // of a block: distances have 32 bits

} // namespace

EventDraft::~EventDraft() {
    if (!moved) {
        made->~Event();
    }
    if (onHeap) {
        free(texts);
    }
}

char *EventDraft::room(size_t bytes, size_t alignment) {
    const size_t start = (used + alignment - 1) / alignment * alignment;
    if (bytes > MOST || (start + bytes + 1 > capacity && !grow(start + bytes + 1))) {
        return nullptr;
    }
    used = start;
    return texts + start;
}

bool EventDraft::grow(size_t wanted) {
    const size_t size = std::max(wanted, capacity * 2);
    char *larger = size <= MOST ? static_cast<char *>(malloc(size)) : nullptr;
    if (larger == nullptr) {
        return false;
    }
    memcpy(larger, texts, used);
    if (onHeap) {
        free(texts);
    }
    texts = larger;
    capacity = size;
    onHeap = true;
    return true;
}

// Where it will stand in the block.
ptrdiff_t EventDraft::placeOf(const Text &field) const {
    const char *at = reinterpret_cast<const char *>(&field);
    const bool amongTexts = at >= texts && at < texts + used;
    return amongTexts ? static_cast<ptrdiff_t>(ownBytes) + (at - texts)
                      : at - reinterpret_cast<const char *>(made);
}

void EventDraft::keep(Text &field, size_t bytes) {
    field.distance = static_cast<uint32_t>(static_cast<ptrdiff_t>(ownBytes + used) - placeOf(field));
    field.bytes = static_cast<uint32_t>(bytes);
    texts[used + bytes] = '\0';
    used += bytes + 1;
}

bool EventDraft::put(Text &field, const void *bytes, size_t count, size_t alignment) {
    char *place = room(count, alignment);
    if (place == nullptr) {
        return false;
    }
    memcpy(place, bytes, count);
    keep(field, count);
    return true;
}

bool EventDraft::putTexts(Text &field, int32_t count) {
    const size_t bytes = static_cast<size_t>(std::max(count, 0)) * sizeof(Text);
    char *place = room(bytes, alignof(Text));
    if (place == nullptr) {
        return false;
    }
    memset(place, 0, bytes);
    keep(field, bytes);
    return true;
}

const char *EventDraft::text(const Text &field) const {
    return field.isNull() ? nullptr
                          : texts + (placeOf(field) + field.distance - static_cast<ptrdiff_t>(ownBytes));
}

Text &EventDraft::textAt(const Text &field, int32_t index) {
    return reinterpret_cast<Text *>(const_cast<char *>(text(field)))[index];
}

// An object of these classes is its bytes, and its texts are found from where it stands.
Event *EventDraft::moveTo(void *place) {
    char *block = static_cast<char *>(place);
    memcpy(block, static_cast<const void *>(made), ownBytes);
    memcpy(block + ownBytes, texts, used);
    moved = true;
    return reinterpret_cast<Event *>(block);
}
