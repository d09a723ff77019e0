// The threads of an event agent as they stood at the start of a walk: others append to the list meanwhile.
// The room is kept from walk to walk.
#pragma once

#include "ZykList.h"

#include <cstdint>
#include <memory>
#include <new>

class ThreadData;

class ThreadRound {
public:
    // False, and the round empty, when memory is out.
    bool take(ZykList<ThreadData *> &list) {
        count = 0;
        const int32_t wanted = list.size();
        if (wanted > room) {
            room = 0;
            threads.reset(new (std::nothrow) ThreadData *[static_cast<size_t>(wanted) * 2]);
            if (threads == nullptr) {
                return false;
            }
            room = wanted * 2;
        }
        count = list.copyFirst(threads.get(), room);
        return true;
    }

    ThreadData **begin() const { return threads.get(); }
    ThreadData **end() const { return threads.get() + count; }
    bool empty() const { return count == 0; }

private:
    std::unique_ptr<ThreadData *[]> threads; // `room` long, the first `count` in use
    int32_t room = 0;
    int32_t count = 0;
};
