#include "pump_test_support.h"

#include <gtest/gtest.h>

using namespace pump_test;

namespace {

constexpr char BAD_START[] = "Trying to start event agent with improper ID: %d [0-%d]";
constexpr char STARTED[] = "Event Agent Thread Started...";

class EvtAgentMgrTest : public PumpTest {
protected:
    EvtAgentMgrTest() { eaTracer = traceLogger.get(); }
    bool agentsRun(int count) {
        return eventually([&] { return log.count(STARTED) == count; });
    }
    std::vector<int> nextIndexes(int count) {
        std::vector<int> indexes;
        for (int i = 0; i < count; ++i) {
            indexes.push_back(pump()->getRoundRobinIndex());
        }
        return indexes;
    }
};

} // namespace

TEST_F(EvtAgentMgrTest, ThreadsGoRoundTheLivingAgents) {
    properties.set("eventagent.pool.size", "3");
    start(0);
    EXPECT_EQ((std::vector<int>{0, 0, 0}), nextIndexes(3)) << "nobody lives: the first is taken";
    ThreadData unlisted(nullptr);
    EXPECT_FALSE(pump()->manageThreadData(&unlisted));
    unlisted.isAlive = false;
    runAgent(2);
    ASSERT_TRUE(agentsRun(1));
    FakeJni jni;
    EXPECT_EQ(nullptr, threadOf(jni)) << "agent 2 alone is not enough";
    EXPECT_FALSE(eventAgentReady);
    runAgent(0);
    ASSERT_TRUE(agentsRun(2));
    EXPECT_TRUE(eventually([] { return eventAgentReady.get(); }));
    EXPECT_EQ((std::vector<int>{0, 0, 2, 0, 0, 2}), nextIndexes(6)) << "agent 0 stands in for agent 1";
    runAgent(1);
    ASSERT_TRUE(agentsRun(3));
    EXPECT_EQ((std::vector<int>{0, 1, 2, 0}), nextIndexes(4));
    EXPECT_NE(nullptr, threadOf(jni));
    EXPECT_FALSE(pump()->manageThreadData(nullptr));
}

TEST_F(EvtAgentMgrTest, BadIdsAndSecondThreadsComeBackAtOnce) {
    properties.set("eventagent.pool.size", "2");
    start();
    ASSERT_TRUE(agentsRun(2));
    FakeJni jni;
    for (const int id : {-1, 2, 7, INT32_MAX, INT32_MIN}) {
        pump()->startEvtAgent(jni.get(), id);
        pump()->stopEvtAgent(id);
    }
    EXPECT_EQ(5, log.count(BAD_START));
    EXPECT_EQ(5, log.count("Trying to stop event agent with improper ID: %d [0-%d]"));
    pump()->startEvtAgent(jni.get(), 0);
    EXPECT_EQ(2, log.count(STARTED)) << "agent 0 has its thread";
    stop();
    pump()->startEvtAgent(jni.get(), 0);
    pump()->stopEvtAgent(0);
    EXPECT_EQ(2, log.count(STARTED)) << "the pool is closed";
    EXPECT_EQ(1, log.messages(1046));
    EXPECT_EQ(1, log.messages(1047));
}

TEST_F(EvtAgentMgrTest, AStuckAgentIsLeftToItself) {
    startAndWait();
    FakeJni jni;
    const ThreadData *td = threadOf(jni);
    stepper.hold();
    stepper.awaitArrival();
    const auto begin = std::chrono::steady_clock::now();
    pump()->stop();
    EXPECT_GT(std::chrono::seconds(9), std::chrono::steady_clock::now() - begin);
    EXPECT_EQ(1, log.count("EventAgent ID: %d still alive after 10 sec wait therefore not deleting"));
    stepper.release();
    for (std::thread &thread : threads) {
        thread.join();
    }
    threads.clear();
    EXPECT_TRUE(td->listed) << "it has touched nothing any more";
    EXPECT_EQ(0, log.count("Event Agent Thread Stopped.."));
    pump()->start();
    runAgent(0);
    EXPECT_TRUE(eventually([] { return pump()->canTakeThreads(); }));
}

TEST_F(EvtAgentMgrTest, OneAgentCanBeStoppedAndStartedAgain) {
    properties.set("eventagent.pool.size", "2");
    start();
    ASSERT_TRUE(agentsRun(2));
    FakeJni first, second, third;
    const ThreadData *staying = threadOf(first);
    ThreadData *moving = threadOf(second); // agent 1 has it
    ASSERT_NE(nullptr, threadOf(third));
    pump()->stopEvtAgent(1);
    EXPECT_TRUE(moving->listed) << "agent 0 has it now";
    appendSqlStart(moving, "x");
    EXPECT_EQ(1, pump()->getNumberOfEvents());
    EXPECT_EQ((std::vector<int>{0, 0, 0}), nextIndexes(3));
    EXPECT_TRUE(pump()->canTakeThreads());
    runAgent(1);
    ASSERT_TRUE(agentsRun(3));
    pump()->stopEvtAgent(0);
    EXPECT_FALSE(pump()->canTakeThreads());
    EXPECT_FALSE(eventAgentReady);
    EXPECT_EQ(nullptr, pump()->getSpecialThreadData());
    pump()->stopEvtAgent(1);
    EXPECT_FALSE(staying->listed) << "nobody is there";
    ThreadData *held = threadMgr.get()->findThreadData(third.get()); // by somebody inside
    threadMgr.get()->endThread(third.get());
    EXPECT_FALSE(appendSqlStart(held, "x"));
    EXPECT_FALSE(pump()->canTakeThreads());
    runAgent(0);
    ASSERT_TRUE(agentsRun(4));
    EXPECT_TRUE(staying->listed && moving->listed);
}

// Agent 1 is held while the leader goes on: what its threads queue counts all the same, also for a caller
// that polls, until it has gone.
TEST_F(EvtAgentMgrTest, ChecksForgetNoGrowth) {
    properties.set("eventagent.pool.size", "2");
    properties.set("internal.probe.event.packet.size", "1");
    properties.set("internal.memory.limit", "5"); // 4,002,048 of it are fixed
    start();
    ASSERT_TRUE(agentsRun(2));
    FakeJni first, second, third, fourth;
    ThreadData *td = nullptr;
    for (FakeJni *jni : {&first, &second, &third, &fourth}) {
        td = threadOf(*jni);
    }
    const auto grow = [](ThreadData *thr, int events) {
        for (int i = 0; i < events; ++i) {
            Draft<SQLEvent> evt(Event::SUB_START);
            evt->size = 30000;
            thr->appendEvent(&evt);
            pump()->getTotalBytesConsumed();
        }
    };
    append<SQLEvent>(threadOf(second), Event::SUB_START);
    {
        const ZykLockGuard held(threadMgr.get()->destructionLock());
        endThread(second); // agent 1 gets as far as its destruction
        ASSERT_TRUE(eventually([] { return pump()->getNumberOfEvents() == 0; }));
        for (const int events : {15, 15, 5}) {
            EXPECT_FALSE(notAccepting);
            grow(td, events);
            std::this_thread::sleep_for(milliseconds(30)); // passes of the leader
        }
        EXPECT_TRUE(notAccepting);
        EXPECT_LE(5000000U, pump()->getTotalBytesConsumed());
    }
    endThread(fourth);
    for (int life = 0; life < 5000; ++life) { // some between the looks that one pass takes
        FakeJni shortLived;
        grow(threadOf(shortLived), 1);
        endThread(shortLived);
    }
    EXPECT_TRUE(eventually([] { return !notAccepting && memoryMonitor->getEventBytes() == 0; }));
}

TEST_F(EvtAgentMgrTest, ANewSleepTimeWakesTheSleepers) {
    properties.set("networkagent.publish.frequency", "60000");
    properties.set("internal.probe.publishing.frequency", "60000");
    server.emplace();
    startAndWait();
    NetworkClient probe;
    ASSERT_TRUE(eventually([&] { return mgr->isConnected(&probe); }));
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    appendSqlStart(td, "woken");
    std::this_thread::sleep_for(milliseconds(100));
    EXPECT_TRUE(received().empty());
    mgr->setSleepTime(1);
    pump()->setSleepTime(1);
    EXPECT_TRUE(receivesText("woken"));
}

TEST_F(EvtAgentMgrTest, ALargePoolStopsAsOne) {
    properties.set("eventagent.pool.size", "8");
    start();
    ASSERT_TRUE(agentsRun(8));
    const auto begin = Clock::now();
    stop();
    EXPECT_GT(5000, millisSince(begin));
}

// The threads of the pool, their owner and callers of all kinds meet at a stop: nobody may touch what is
// gone.
TEST_F(EvtAgentMgrTest, StopWaitsForCallsInside) {
    properties.set("eventagent.pool.size", "2");
    eaTracer = nullptr;
    std::atomic<bool> done{false};
    EvtAgentMgr::create();
    std::vector<std::thread> callers;
    for (int i = 0; i < 3; ++i) {
        callers.emplace_back([&] {
            while (!done) {
                pump()->getNumberOfEvents();
                pump()->getTotalDataSize();
                pump()->notifySocketStatus();
                pump()->setSleepTime(1);
                pump()->getSpecialThreadData();
                std::this_thread::yield();
            }
        });
    }
    for (int cycle = 0; cycle < 2; ++cycle) {
        start();
        if (cycle > 0) {
            EXPECT_TRUE(eventually([] { return pump()->canTakeThreads(); }));
        }
        stop(); // in the first cycle while the agents are still entering
    }
    done = true;
    for (std::thread &caller : callers) {
        caller.join();
    }
}
