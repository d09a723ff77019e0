// Where an agent's thread pauses between two rounds, by the monotonic clock, and how others cut that short.
// One thread pauses, any may wake it. A stop lowers its flag and wakes; the thread looks at the flag before
// each pause: so either it does not pause, or it is there to be woken.
#pragma once

#include "ZykLock.h"

#include <atomic>
#include <cstdint>

class Pause {
public:
    static constexpr int64_t LEAST_MS = 20; // from one hurried round to the next

    // For the pausing thread: return when the milliseconds are over (not positive: at once) or it was woken.
    void sleep(int64_t ms);
    // Ends for `hurry` too; true if it did.
    bool rest(int64_t ms);

    // Ends the present pause, or the next one.
    void wake();

    // Ends the present rest, but none sooner than 20 ms after the last that it has ended. What comes ahead of
    // a rest does not count. For those who have filled a queue far enough, at each event, refused ones too:
    // it costs a look at a word that hardly changes. Only one caller in 20 ms enters the lock, which the
    // pausing thread holds for some instructions.
    void hurry() {
        if (!hurried.load(std::memory_order_relaxed)) {
            callForHurry();
        }
    }

private:
    void waitUntil(int64_t end);
    void callForHurry();

    ZykLock lock; // the thread sleeps on it; held only around a wait and a notice
    std::atomic<bool> woken{false};
    std::atomic<bool> hurried{false}; // by somebody, since the last rest began
    std::atomic<bool> resting{false}; // whoever hurries has to give notice
    int64_t nextHurried = 0;          // monotonic microseconds; no rest is hurried before
};
