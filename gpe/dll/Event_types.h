// What is known of each type of events beyond its class: one row a type in `Event_types.cpp`.
#pragma once

#include "Event.h"

#include <array>
#include <cstddef>
#include <cstdint>

// Which counters of a `DroppedEvent` tell of a lost event: by the subtype the begin or the end of one pair,
// or the same one always, or none.
enum class Loss : uint8_t { Other, Method, Sql, OtherBegin, OtherEnd, None };

// Whether a queue that is too long refuses and drops such events.
enum class Keeping : uint8_t { Droppable, Protected };

struct EventTypeFacts {
    void (*record)(ProtocolVisitor *visitor, Event *event); // writes it; null where none is defined here
    Loss loss;
    Keeping keeping;
};

constexpr size_t EVENT_TYPE_LIMIT = 128; // above all types

// By number; the last one is that of all numbers beyond.
extern const std::array<EventTypeFacts, EVENT_TYPE_LIMIT + 1> EVENT_TYPES;

inline const EventTypeFacts &factsOf(Event::EventType type) {
    const auto index = static_cast<size_t>(static_cast<uint32_t>(type));
    return EVENT_TYPES[index < EVENT_TYPE_LIMIT ? index : EVENT_TYPE_LIMIT];
}

// May exceed the limit of a queue, and survives the dropping of old events.
inline bool isProtectedType(const Event &evt) {
    return factsOf(evt.type).keeping == Keeping::Protected;
}
