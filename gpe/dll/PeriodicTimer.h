// Paces a recurring line of statistics. For one thread. The first question is answered with true.
#pragma once

#include "platform.h"

#include <cstdint>

class PeriodicTimer {
public:
    explicit PeriodicTimer(uint32_t intervalMillis) : interval(int64_t{intervalMillis} * 1000) {}

    // True, and the next interval begins, once more than the interval has passed since the last time.
    bool expired() { return expired(monotonicMicros()); }
    bool expired(int64_t nowMicros) {
        if (nowMicros - last <= interval) {
            return false;
        }
        last = nowMicros;
        return true;
    }

private:
    int64_t interval;             // microseconds
    int64_t last = INT64_MIN / 2; // longer ago than any interval
};
