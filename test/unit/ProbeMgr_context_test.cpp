#include "ProbeMgr.h"

#include "FakeVm.h"
#include "ProbeContextPersister.h"
#include "TempDir.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>

namespace {

// What Java may call at any time, as it does.
void useContext(int32_t level) {
    const int32_t ids[] = {1, 2, 3, 4, 99};
    const int32_t values[] = {level, level & 1, 1, 0, 7};
    ProbeMgr::synchOutProbeContext(ids, values, 5);
    ProbeMgr::updateSuppressL3CollectionContext(false);
    delete[] ProbeMgr::initProbeContext();
    delete[] ProbeMgr::synchInProbeContext();
    ProbeMgr::resetProbeContext();
    free(ProbeMgr::copyContextFilePath());
}

TEST(ProbeMgrContext, MayBeDestroyedWhileItIsUsed) {
    const FakeVm vm;
    const TempDir root;
    const auto create = [&root] {
        const ContextHold hold;
        contextPersister = new ProbeContextPersister(root.path.c_str(), root.path.c_str());
        contextPersister->ctx_direct(ProbeContextPersister::CTX_READ);
    };
    create(); // alone, as at start: this makes the monitor
    std::atomic<bool> going{true};
    const auto use = [&going](int32_t level) {
        while (going) {
            useContext(level);
        }
    };
    std::thread one(use, 1);
    std::thread other(use, 2);
    for (int i = 0; i < 300; ++i) {
        std::this_thread::yield();
        ProbeMgr::destroy();
        create();
    }
    ProbeMgr::destroy();
    going = false;
    one.join();
    other.join();

    EXPECT_EQ(contextPersister, nullptr);
    EXPECT_EQ(ProbeMgr::synchInProbeContext(), nullptr);
    EXPECT_FALSE(ProbeMgr::resetProbeContext());
    EXPECT_EQ(ProbeMgr::copyContextFilePath(), nullptr);
    probeLevel = 0;
    probeLevelIsDefault = false;
    suppressL3Collection = false;
    suppressGCEventCollection = false;
}

} // namespace
