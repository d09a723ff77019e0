// Events on their way into a queue and out of it.
#pragma once

#include "EventQueue.h"
#include "ThreadData.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

template <typename E, typename... Args>
bool append(ThreadData *td, Args... args) {
    Draft<E> evt(args...);
    return td->appendEvent(&evt);
}

inline bool appendSqlStart(ThreadData *td, const std::string &text) {
    Draft<SQLEvent> evt(Event::SUB_START);
    evt->threadId = td->threadId;
    evt.put(evt->sql, text.data(), text.size());
    return td->appendEvent(&evt);
}

struct FreeBlock {
    void operator()(Event *event) const { free(static_cast<void *>(event)); }
};
using Queued = std::unique_ptr<Event, FreeBlock>;

// The oldest event of a queue with its texts, taken out of it; null if there is none.
inline Queued takeFirst(EventQueue &queue) {
    const Event *event = queue.first();
    if (event == nullptr) {
        return nullptr;
    }
    const size_t bytes = EventQueue::blockBytes(*event);
    void *copy = malloc(bytes);
    memcpy(copy, static_cast<const void *>(event), bytes);
    queue.removeFirst();
    return Queued(static_cast<Event *>(copy));
}
