#include "ZykLock.h"

#include "FakeVm.h"
#include "ProbeState.h"
#include "RecordedLog.h"
#include "Threads.h"
#include "ZykOsLock.h"
#include "platform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

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
    const int64_t start = monotonicMicros();
    action();
    return (monotonicMicros() - start) / MICROS_PER_MS;
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
    eager->wait(0);
    eager->wait(-5); // neither is for ever
    EXPECT_GE(millisecondsOf([&] { eager->wait(20); }), 20);
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

TEST(ZykOsLock, ExcludesThreadsThatRaceForTheFirstUse) {
    for (int round = 0; round < 200; ++round) {
        ZykOsLock lock(false);
        int shared = 0;
        onThreads(4, [&](int) {
            for (int i = 0; i < 25; ++i) {
                lock.ensureCreated();
                lock.lock();
                EXPECT_TRUE(lock.lock()); // re-entrant, and not open before the second unlock
                lock.unlock();
                ++shared;
                EXPECT_TRUE(lock.unlock());
            }
        });
        ASSERT_EQ(100, shared);
    }
}

} // namespace
