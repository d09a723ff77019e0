// Paces a recurring line of statistics by the wall clock, in 32-bit microseconds that wrap every 71 minutes.
// For one thread. Until it has fired once it counts from the last wrap: the first question is nearly always
// answered with true.
#pragma once

#include "platform.h"

#include <cstdint>

class PeriodicTimer {
public:
    explicit PeriodicTimer(uint32_t intervalMillis) : interval(intervalMillis * 1000u) {}

    // True, and the next interval begins, once more than the interval has passed since the last time.
    bool expired() {
        uint32_t sec = 0;
        uint32_t usec = 0;
        getCurrentTime(&sec, &usec);
        return expired(sec * 1000000u + usec);
    }
    bool expired(uint32_t now) {
        if (now - last <= interval) {
            return false;
        }
        last = now;
        return true;
    }

private:
    uint32_t interval;
    uint32_t last = 0;
};
