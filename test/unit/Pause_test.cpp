#include "Pause.h"

#include "FakeVm.h"
#include "platform.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

constexpr int64_t LONG_MS = 60000;

int64_t sinceMs(int64_t start) {
    return (monotonicMicros() - start) / MICROS_PER_MS;
}

// Wakes come before, within and after the moment in which the thread falls asleep.
TEST(Pause, NoWakeUpIsLost) {
    const FakeVm vm;
    Pause pause;
    std::atomic<int> done{0};
    constexpr int ROUNDS = 3000;
    const int64_t start = monotonicMicros();
    std::thread sleeper([&] {
        for (int i = 0; i < ROUNDS; ++i) {
            i % 2 == 0 ? pause.sleep(LONG_MS) : static_cast<void>(pause.rest(LONG_MS));
            ++done;
        }
    });
    for (int i = 0; i < ROUNDS; ++i) {
        pause.wake();
        while (done <= i) {
            std::this_thread::yield();
        }
    }
    sleeper.join();
    EXPECT_LT(sinceMs(start), LONG_MS);
}

TEST(Pause, OnlyARestIsHurriedAndNotTooOften) {
    const FakeVm vm;
    Pause pause;
    EXPECT_FALSE(pause.rest(5));
    std::atomic<bool> ended{false};
    std::thread producer([&] {
        while (!ended) {
            pause.hurry();
        }
    });
    int64_t start = monotonicMicros();
    pause.sleep(30);
    EXPECT_GE(sinceMs(start), 30);
    start = monotonicMicros();
    constexpr int RESTS = 6;
    for (int i = 0; i < RESTS; ++i) {
        EXPECT_TRUE(pause.rest(LONG_MS));
    }
    EXPECT_GE(sinceMs(start), (RESTS - 1) * Pause::LEAST_MS);
    EXPECT_LT(sinceMs(start), LONG_MS);
    ended = true;
    producer.join();
}

} // namespace
