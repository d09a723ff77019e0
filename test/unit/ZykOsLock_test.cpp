#include "ZykOsLock.h"

#include "Threads.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace {

TEST(ZykOsLock, IsReentrantAndExcludesOthers) {
    ZykOsLock lock;
    std::atomic<bool> inside{false};
    EXPECT_TRUE(lock.lock());
    EXPECT_TRUE(lock.lock());
    std::thread other([&] {
        lock.lock();
        inside = true;
        lock.unlock();
    });
    EXPECT_TRUE(lock.unlock());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(inside);
    EXPECT_TRUE(lock.unlock());
    other.join();
    EXPECT_TRUE(inside);
}

TEST(ZykOsLock, ThreadsRaceForTheFirstUse) {
    for (int round = 0; round < 200; ++round) {
        ZykOsLock lock(false);
        int shared = 0;
        onThreads(4, [&](int) {
            for (int i = 0; i < 25; ++i) {
                lock.ensureCreated();
                lock.lock();
                ++shared;
                lock.unlock();
            }
        });
        ASSERT_EQ(100, shared);
    }
}

} // namespace
