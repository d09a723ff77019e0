#include "GCNotificator.h"
#include "JVMTIGCProcessor.h"
#include "RealJvm.h"

#include <atomic>
#include <gtest/gtest.h>
#include <thread>

namespace {

class GCNotificator : public testing::Test {
protected:
    GCNotificator() {
        RealJvm::env();
        EXPECT_EQ(createGCNotificatorMonitor(), JVMTI_ERROR_NONE);
    }
    RealVmSkin skin;
};

TEST_F(GCNotificator, NoNoticeIsLostAndSeveralAreOne) {
    EXPECT_FALSE(waitForNotification(10));
    notifyWaiter();
    notifyWaiter();
    EXPECT_TRUE(waitForNotification(60000));
    EXPECT_FALSE(waitForNotification(10));
    std::atomic<int> woken{0};
    std::thread waiter([&] {
        RealJvm::onJavaThread([&](JNIEnv *) {
            for (; woken < 100; ++woken) {
                EXPECT_TRUE(waitForNotification(0));
            }
        });
    });
    while (woken < 100) {
        notifyWaiter();
        std::this_thread::yield();
    }
    waiter.join();
}

TEST_F(GCNotificator, AProcessorKeepsTenCollectionsAndLetsThePollerGo) {
    JVMTIGCProcessor processor;
    int64_t times[2] = {};
    EXPECT_FALSE(processor.getGCEvent(times)) << "not started";
    processor.startNative();
    for (int i = 0; i < 12; ++i) {
        processor.gcStart();
        processor.gcFinish();
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(processor.getGCEvent(times));
        EXPECT_GE(times[1], times[0]);
        EXPECT_GT(times[0], 1600000000000);
    }
    std::atomic<bool> got{false};
    std::thread poller([&] {
        RealJvm::onJavaThread([&](JNIEnv *) {
            int64_t next[2];
            EXPECT_TRUE(processor.getGCEvent(next));
            got = true;
            EXPECT_FALSE(processor.getGCEvent(next));
        });
    });
    processor.gcFinish();
    while (!got) {
        std::this_thread::yield();
    }
    processor.stopNative();
    poller.join();
}

} // namespace
