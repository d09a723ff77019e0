#include "ZykLock.h"

#include "FakeVm.h"
#include "ProbeState.h"
#include "RecordedLog.h"
#include "Threads.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <thread>

using testing::ElementsAre;

namespace {

constexpr char CREATION_FAILED[] = "## ERROR: JVMPI could not create a Raw Monitor";

// The agent before it has the JVM interface.
class NoVm {
public:
    NoVm() : old(eventInterface) { eventInterface = nullptr; }
    ~NoVm() { eventInterface = old; }

private:
    JVMPIWrapper *old;
};

int64_t millisecondsOf(const std::function<void()> &action) {
    const auto start = std::chrono::steady_clock::now();
    action();
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start)
        .count();
}

TEST(ZykLock, IsASilentNoOpUntilThereIsAnInterface) {
    ZykLock lazy(false);
    std::unique_ptr<ZykLock> eager;
    {
        const NoVm noVm;
        testing::internal::CaptureStderr();
        eager = std::make_unique<ZykLock>();
        for (ZykLock *lock : {&lazy, eager.get()}) {
            EXPECT_FALSE(lock->lock());
            EXPECT_FALSE(lock->unlock());
            lock->wait(100000);
            lock->notifyAll();
        }
        waitOnLocalLock(100000);
        EXPECT_EQ("", testing::internal::GetCapturedStderr());
    }
    const FakeVm vm;
    const int before = vm.monitorsCreated();
    EXPECT_TRUE(eager->lock());
    EXPECT_TRUE(eager->lock()); // re-entrant
    EXPECT_TRUE(eager->unlock());
    EXPECT_TRUE(eager->unlock());
    EXPECT_EQ(before + 1, vm.monitorsCreated());
    eager.reset();
}

TEST(ZykLock, FailedCreationIsToldAndTriedAgain) {
    FakeVm vm;
    ZykLock lock(false);
    const auto failingLock = [&] {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(lock.lock());
        EXPECT_FALSE(lock.unlock());
        return testing::internal::GetCapturedStderr();
    };
    vm.failMonitorCreation(true);
    EXPECT_EQ(CREATION_FAILED, failingLock());
    // What waits in a loop does not spin, and a guard does not open what another thread has locked since.
    EXPECT_GE(millisecondsOf([&] { lock.wait(20); }), 20);
    testing::internal::CaptureStderr();
    EXPECT_GE(millisecondsOf([] { waitOnLocalLock(250); }), 250);
    EXPECT_EQ(CREATION_FAILED, testing::internal::GetCapturedStderr());
    vm.failMonitorCreation(false);
    for (const uint32_t phase : {JVMTI_PHASE_PRIMORDIAL, JVMTI_PHASE_START, JVMTI_PHASE_DEAD}) {
        vm.wrapper.phase = phase;
        EXPECT_EQ(CREATION_FAILED, failingLock()) << phase;
    }
    vmDeadSeen = true;
    EXPECT_EQ("", failingLock()) << "nothing is told at the end of the process";
    vmDeadSeen = false;
    vm.wrapper.phase = JVMTI_PHASE_LIVE;
    EXPECT_TRUE(lock.lock());
    EXPECT_TRUE(lock.unlock());
}

TEST(ZykLock, GlobalLockIsMadeOnce) {
    const RecordedLog log(LGK_INFO);
    {
        const NoVm noVm;
        EXPECT_FALSE(ZykLock::populateGlobalLock());
        EXPECT_FALSE(ZykLock::destroyGlobalLock());
    }
    FakeVm vm;
    vm.failMonitorCreation(true);
    EXPECT_FALSE(ZykLock::populateGlobalLock());
    EXPECT_THAT(log.numbers(), ElementsAre(1038, 1037));
    vm.failMonitorCreation(false);
    const int before = vm.monitorsAlive();
    EXPECT_TRUE(ZykLock::populateGlobalLock());
    EXPECT_TRUE(ZykLock::populateGlobalLock());
    EXPECT_EQ(before + 1, vm.monitorsAlive());
    EXPECT_TRUE(ZykLock::destroyGlobalLock());
    EXPECT_EQ(before, vm.monitorsAlive());
    EXPECT_FALSE(ZykLock::destroyGlobalLock());
}

// With a global lock the first users of a lock may race: one monitor comes of it, and it excludes.
TEST(ZykLock, ThreadsRaceForTheFirstUse) {
    const FakeVm vm;
    ASSERT_TRUE(ZykLock::populateGlobalLock());
    for (int round = 0; round < 200; ++round) {
        const int before = vm.monitorsCreated();
        ZykLock lock(false);
        int shared = 0;
        onThreads(4, [&](int) {
            for (int i = 0; i < 25; ++i) {
                const ZykLockGuard guard(lock);
                ++shared;
            }
        });
        ASSERT_EQ(before + 1, vm.monitorsCreated());
        ASSERT_EQ(100, shared);
    }
    ZykLock::destroyGlobalLock();
}

TEST(ZykLock, WaitingIsBoundedAndCanBeEnded) {
    const FakeVm vm;
    ZykLock lock;
    {
        const ZykLockGuard guard(lock);
        EXPECT_LT(millisecondsOf([&] {
                      lock.wait(0);
                      lock.wait(-5);
                  }),
                  1000);
        EXPECT_GE(millisecondsOf([&] { lock.wait(20); }), 20);
    }
    EXPECT_GE(millisecondsOf([] { waitOnLocalLock(20); }), 20);

    bool told = false;
    std::thread teller([&] {
        const ZykLockGuard guard(lock);
        told = true;
        lock.notifyAll();
    });
    const int64_t waited = millisecondsOf([&] {
        const ZykLockGuard guard(lock);
        while (!told) {
            lock.wait(60000);
        }
    });
    teller.join();
    EXPECT_LT(waited, 30000);
}

} // namespace
