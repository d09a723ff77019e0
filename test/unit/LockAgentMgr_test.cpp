#include "LockAgentMgr.h"

#include "FakeVm.h"
#include "RecordedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using testing::ElementsAre;

namespace {

TEST(LockAgentMgr, WaitsForTheInterface) {
    JVMPIWrapper *old = eventInterface;
    eventInterface = nullptr;
    LockAgentMgr::create();
    {
        const RecordedLog log;
        EXPECT_FALSE(lockAgentMgr->initializeAfterJVMPI());
        EXPECT_THAT(log.texts(), ElementsAre("initializeAfterJVMPI was called before JVMPI was initialized"));
        lockAgentMgr->start();
        lockAgentMgr->stop();
    }
    eventInterface = old;
    const FakeVm vm;
    const int before = vm.monitorsAlive();
    LockAgentMgr::create();
    lockAgentMgr->start();
    lockAgentMgr->start();
    EXPECT_EQ(before + 3, vm.monitorsAlive()); // the global lock and the manager's two
    lockAgentMgr->stop();
    lockAgentMgr->start();
    EXPECT_EQ(before + 3, vm.monitorsAlive());
    LockAgentMgr::destroy();
    EXPECT_EQ(before, vm.monitorsAlive());
    EXPECT_EQ(nullptr, lockAgentMgr.get());
    ZykLock::populateGlobalLock();
    LockAgentMgr::destroy(); // takes the global lock away even with no manager
    EXPECT_EQ(before, vm.monitorsAlive());
}

} // namespace
