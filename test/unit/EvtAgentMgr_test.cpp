#include "pump_test_support.h"

#include <gtest/gtest.h>

using namespace pump_test;

namespace {

constexpr char BAD_START[] = "Trying to start event agent with improper ID: %d [0-%d]";
constexpr char STARTED[] = "Event Agent Thread Started...";

class EvtAgentMgrTest : public PumpTest {
protected:
    EvtAgentMgrTest() { eaTracer = traceLogger.get(); }
    ~EvtAgentMgrTest() override {
        stop();
        eaTracer = nullptr;
    }
    bool agentsRun(int count) {
        return eventually([&] { return log.lines(STARTED) == count; });
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
    EXPECT_FALSE(pump()->canTakeThreads());
    runAgent(0);
    ASSERT_TRUE(agentsRun(1));
    runAgent(2);
    ASSERT_TRUE(agentsRun(2));
    EXPECT_EQ((std::vector<int>{0, 0, 2, 0, 0, 2}), nextIndexes(6)) << "agent 0 stands in for agent 1";
    runAgent(1);
    ASSERT_TRUE(agentsRun(3));
    EXPECT_EQ((std::vector<int>{0, 1, 2, 0}), nextIndexes(4));
}

TEST_F(EvtAgentMgrTest, TakesThreadsOnlyWhileTheLeaderRuns) {
    properties.set("eventagent.pool.size", "2");
    start(0);
    FakeJni jni;
    EXPECT_EQ(nullptr, threadOf(jni));
    ThreadData unlisted(nullptr);
    EXPECT_FALSE(pump()->manageThreadData(&unlisted));
    runAgent(1);
    ASSERT_TRUE(agentsRun(1));
    EXPECT_EQ(nullptr, threadOf(jni)) << "agent 1 alone is not enough";
    EXPECT_FALSE(eventAgentReady);
    runAgent(0);
    ASSERT_TRUE(agentsRun(2));
    EXPECT_TRUE(eventually([] { return eventAgentReady.get(); }));
    EXPECT_NE(nullptr, threadOf(jni));
    EXPECT_FALSE(pump()->manageThreadData(nullptr));
    unlisted.isAlive = false;
}

TEST_F(EvtAgentMgrTest, AnAgentThatDoesNotRunRefusesThreads) {
    EventAgent agent(0);
    ThreadData td(nullptr);
    EXPECT_FALSE(agent.manageThreadData(&td));
    EXPECT_EQ(1, log.messages(1040));
    td.isAlive = false;
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
    EXPECT_EQ(5, log.lines(BAD_START));
    EXPECT_EQ(5, log.lines("Trying to stop event agent with improper ID: %d [0-%d]"));
    pump()->startEvtAgent(jni.get(), 0);
    EXPECT_EQ(2, log.lines(STARTED)) << "agent 0 has its thread";
    stop();
    pump()->startEvtAgent(jni.get(), 0);
    pump()->stopEvtAgent(0);
    EXPECT_EQ(2, log.lines(STARTED)) << "the pool is closed";
    EXPECT_EQ(1, log.messages(1046));
    EXPECT_EQ(1, log.messages(1047));
}

TEST_F(EvtAgentMgrTest, OneAgentCanBeStoppedAndStartedAgain) {
    properties.set("eventagent.pool.size", "2");
    start();
    ASSERT_TRUE(agentsRun(2));
    pump()->stopEvtAgent(1);
    EXPECT_EQ((std::vector<int>{0, 0}), nextIndexes(2));
    EXPECT_TRUE(pump()->canTakeThreads());
    runAgent(1);
    ASSERT_TRUE(agentsRun(3));
    pump()->stopEvtAgent(0);
    EXPECT_FALSE(pump()->canTakeThreads());
    EXPECT_FALSE(eventAgentReady);
    EXPECT_EQ(nullptr, pump()->getSpecialThreadData());
}

TEST_F(EvtAgentMgrTest, CountsWhatIsQueued) {
    stepper.hold();
    startAndWait();
    stepper.awaitArrival();
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    ASSERT_NE(nullptr, td);
    for (int i = 0; i < 3; ++i) {
        td->appendEvent(sqlStart(td, "x"));
    }
    EXPECT_EQ(3, pump()->getNumberOfEvents());
    stepper.step();
    EXPECT_EQ(3 * static_cast<int32_t>(sizeof(SQLEvent)), pump()->getTotalDataSize())
        << "as of the last pass";
    stepper.release();
    const uint32_t total = pump()->getTotalBytesConsumed();
    EXPECT_EQ(memoryMonitor.get()->getMemoryTaken(), total);
    stop();
    EXPECT_EQ(0, pump()->getNumberOfEvents());
    EXPECT_EQ(0, pump()->getTotalDataSize());
    EXPECT_EQ(0, pump()->getSleepTime());
}

TEST_F(EvtAgentMgrTest, PrioritiesAreSetOnTheJavaSide) {
    FakeJni jni;
    EvtAgentMgr::create();
    EXPECT_TRUE(pump()->setThreadPriority(jni.get(), 8));
    EXPECT_EQ(1, FakeJni::calls);
    EXPECT_FALSE(pump()->setThreadPriority(nullptr, 8));
}

TEST_F(EvtAgentMgrTest, TellsStatisticsAtTheirPace) {
    properties.set("log.statistics.frequency", "1");
    properties.set("eventagent.pool.size", "2");
    setStatisticsEnabled(true);
    start();
    constexpr char SUM[] = "## EAMgr: Statistics across all EA's: Total EA events: %ld EA Event Memory: %ld "
                           "Total Sink Memory: %ld";
    EXPECT_TRUE(eventually([&] { return log.lines(SUM) >= 2; }));
    stop();
    EXPECT_EQ(2 * log.lines(SUM), log.lines("EA id: %d MemoryUsed: %ld Events: %ld "));
    setStatisticsEnabled(false);
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
