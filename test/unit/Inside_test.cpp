#include "Inside.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

namespace {

enum class Stay { Left, SteppedOut, In, Nested };

// What a thread has to do before the one who waits goes on.
TEST(InsideTest, WhoWaitsGoesOnWhenTheLastHasLeftOrSteppedOut) {
    for (const Stay stay : {Stay::Left, Stay::SteppedOut, Stay::In, Stay::Nested}) {
        std::promise<void> ready;
        std::promise<void> go;
        std::thread thread([&] {
            const auto report = [&] {
                ready.set_value();
                go.get_future().wait();
            };
            if (stay == Stay::Left) {
                { const Inside inside; }
                report();
                return;
            }
            const Inside inside;
            if (stay == Stay::Nested) {
                { const Inside inner; }
                report();
            } else if (stay == Stay::SteppedOut) {
                const Outside waiting;
                report();
            } else {
                report();
            }
        });
        ready.get_future().wait();
        auto waiting = std::async(std::launch::async, [] {
            const Inside self; // is not waited for
            return awaitDeparture();
        });
        if (stay == Stay::Left || stay == Stay::SteppedOut) {
            EXPECT_TRUE(waiting.get());
            go.set_value();
        } else {
            EXPECT_EQ(std::future_status::timeout, waiting.wait_for(std::chrono::milliseconds(20)));
            go.set_value();
            EXPECT_TRUE(waiting.get());
        }
        thread.join();
    }
}

TEST(InsideTest, OnePatienceIsSharedByAllThatIsFreed) {
    std::promise<void> ready;
    std::promise<void> go;
    std::thread stuck([&] {
        const Inside inside;
        ready.set_value();
        go.get_future().wait();
    });
    ready.get_future().wait();
    {
        const SharedPatience patience(50);
        const SharedPatience nested;
        const auto begin = std::chrono::steady_clock::now();
        for (int thing = 0; thing < 1000; ++thing) {
            EXPECT_FALSE(awaitDeparture());
        }
        EXPECT_LE(std::chrono::milliseconds(50), std::chrono::steady_clock::now() - begin);
        EXPECT_GT(std::chrono::seconds(20), std::chrono::steady_clock::now() - begin);
    }
    go.set_value();
    stuck.join();
    EXPECT_TRUE(awaitDeparture());
}

struct Shared {
    ~Shared() { alive = false; }
    std::atomic<bool> alive{true};
};

struct Published {
    Shared *get() const { return word.load(std::memory_order_acquire); }
    void operator=(Shared *value) { word.store(value, std::memory_order_release); }
    std::atomic<Shared *> word{nullptr};
};

// Readers at full speed beside one who replaces what they read, and threads that come and go.
TEST(InsideTest, NothingIsFreedUnderAThread) {
    Published published;
    std::atomic<bool> done{false};
    std::atomic<int> seen{0};
    const auto read = [&] {
        const Inside inside;
        ASSERT_TRUE(inside);
        const Shared *found = published.get();
        if (found != nullptr) {
            ASSERT_TRUE(found->alive);
            ++seen;
        }
    };
    std::vector<std::thread> readers;
    for (int i = 0; i < 4; ++i) {
        readers.emplace_back([&, brief = i == 0] {
            while (!done) {
                brief ? std::thread(read).join() : read();
            }
        });
    }
    for (int round = 0; round < 300 || seen < 1000; ++round) {
        published = new Shared;
        std::this_thread::yield();
        retire(published);
    }
    done = true;
    for (std::thread &reader : readers) {
        reader.join();
    }
}

} // namespace
