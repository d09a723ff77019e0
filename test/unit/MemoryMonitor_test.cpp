#include "MemoryMonitor.h"

#include "Event.h"
#include "FakeVm.h"
#include "ProbeState.h"
#include "PropertyMgr.h"
#include "QueuedEvents.h"
#include "RecordedLog.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "Threads.h"

#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr uint32_t MINIMUM = 6048000; // with the default pool and packet size
constexpr uint32_t LIMIT = 60000000;
constexpr uint32_t RESUME = 58000000;
constexpr uint32_t TURBO_ON = 45000000;
constexpr uint32_t TURBO_OFF = 24000000;
constexpr uint32_t THREAD_RECORD = 232;

// Writes down what the governor asks of it.
class RecordingPool : public AgentPool {
public:
    RecordingPool(std::string poolName, std::vector<std::string> &sharedCalls)
        : name(std::move(poolName)), calls(sharedCalls) {}
    int32_t getSleepTime() override { return sleepTime; }
    bool setSleepTime(long ms) override {
        calls.push_back(name + " sleep " + std::to_string(ms));
        return true;
    }
    bool setThreadPriority(JNIEnv *, int priority) override {
        calls.push_back(name + " priority " + std::to_string(priority));
        return true;
    }
    int32_t getTotalDataSize() override { return bytes; }

    int32_t sleepTime = 777;
    int32_t bytes = 0;

private:
    const std::string name;
    std::vector<std::string> &calls;
};

// Takes threads and leaves their queues alone.
class IdleTaker : public ThreadTaker {
public:
    bool canTakeThreads() override { return true; }
    bool manageThreadData(ThreadData *) override { return true; }
};

class MemoryMonitorTest : public testing::Test {
protected:
    MemoryMonitorTest() {
        new PropertyMgr;
        ThreadMgr::create();
        ThreadMgr::setThreadTaker(&taker);
        threadMgr->start();
        MemoryMonitor::create();
        MemoryMonitor::setNetworkPool(&network);
        MemoryMonitor::setEventPool(&events);
        probeDisabled = false;
    }
    ~MemoryMonitorTest() override {
        probeDisabled = true;
        if (memoryMonitor != nullptr) {
            memoryMonitor->leaveTurboMode(nullptr);
            restart("");
            MemoryMonitor::destroy();
        }
        MemoryMonitor::setNetworkPool(nullptr);
        MemoryMonitor::setEventPool(nullptr);
        ThreadMgr::setThreadTaker(nullptr);
        threadMgr->stop();
        PropertyMgr::destroy();
    }

    // Fresh properties, "key=value" between blanks, then the monitor's start.
    void restart(const std::string &settings) {
        PropertyMgr::destroy();
        new PropertyMgr;
        std::istringstream words(settings);
        for (std::string word; words >> word;) {
            propertyMgr->parseProperty(word.data(), false);
        }
        memoryMonitor->start();
    }

    // What was logged since the last look, from the level of decisions up.
    std::vector<std::string> told() {
        const std::vector<std::string> texts = log.texts();
        log.clear();
        return texts;
    }

    // Runs the accept control over queues that bring the total to exactly `bytes`.
    bool checkAt(uint32_t bytes) {
        const auto threads = static_cast<uint32_t>(threadMgr->getThreadCount());
        return memoryMonitor->checkForULimit(bytes - MINIMUM - threads * THREAD_RECORD -
                                             static_cast<uint32_t>(network.bytes));
    }
    // And the turbo control.
    void turboAt(uint32_t bytes) {
        checkAt(bytes);
        memoryMonitor->checkTurboMode(nullptr);
    }

    // What stands in the queue of a thread, which is emptied.
    static std::vector<std::string> queued(JNIEnv *env) {
        std::vector<std::string> found;
        ThreadData *td = threadMgr->getThreadData(env);
        while (const Queued event = takeFirst(*td->eventQueue)) {
            const bool marker = event->type == Event::TYPE_DROPPED && event->subType == Event::SUB_ALONE &&
                                event->threadId == td->threadId;
            found.push_back(marker ? "marker" : "event " + std::to_string(event->type));
        }
        return found;
    }

    FakeVm vm;
    RecordedLog log{LGK_DEBUG_MIN};
    std::vector<std::string> calls;
    RecordingPool network{"network", calls};
    RecordingPool events{"events", calls};
    IdleTaker taker;
};

// ---------------------------------------------------------------- the two controls

TEST_F(MemoryMonitorTest, AcceptControlTurnsAtTheExactByte) {
    restart("");
    network.bytes = 1000;
    threadMgr->getThreadData(fakeEnv(1));
    threadMgr->getThreadData(fakeEnv(2));
    EXPECT_FALSE(memoryMonitor->checkForULimit(5));
    EXPECT_EQ(memoryMonitor->getMemoryTaken(), MINIMUM + 1000 + 2 * THREAD_RECORD + 5);
    told();

    const std::string stopped = "Memory Limit reached, datacollector stopped accepting data, Limit: "
                                "60000000 Memory Utilization: ";
    const std::string resumed = "Memory Utlization below Limit, datacollector is accepting data, Limit: "
                                "60000000 Memory Utilization: ";
    const struct {
        uint32_t total;
        bool refused;
        std::string message;
    } steps[] = {
        {LIMIT - 1, false, ""},     {LIMIT, true, stopped},       {LIMIT + 7, true, ""},
        {RESUME + 1, true, ""},     {RESUME, false, resumed},     {LIMIT - 1, false, ""},
        {LIMIT + 1, true, stopped}, {RESUME - 1, false, resumed}, {4000000000U, true, stopped},
    };
    for (const auto &step : steps) {
        SCOPED_TRACE(step.total);
        EXPECT_EQ(checkAt(step.total), step.refused);
        EXPECT_EQ(notAccepting, step.refused);
        EXPECT_EQ(memoryMonitor->getMemoryTaken(), step.total);
        if (step.message.empty()) {
            EXPECT_THAT(log.numbers(), IsEmpty());
        } else {
            EXPECT_THAT(log.numbers(), ElementsAre(step.refused ? 1054 : 1055));
            EXPECT_TRUE(log.has(step.message + std::to_string(step.total)));
        }
        log.clear();
    }
    memoryMonitor->stop();
    EXPECT_EQ(memoryMonitor->getMemoryTaken(), 0U);
    EXPECT_THAT(told(), Contains("MemoryMonitor stoped"));
}

TEST_F(MemoryMonitorTest, TurboControlTurnsAtTheExactByteAndGivesThePoolsTheirFigures) {
    restart("");
    told();
    turboAt(TURBO_ON - 1);
    EXPECT_THAT(calls, IsEmpty());
    turboAt(TURBO_ON);
    EXPECT_THAT(std::exchange(calls, {}), ElementsAre("network sleep 20", "network priority 10",
                                                      "events sleep 20", "events priority 8"));
    EXPECT_THAT(told(), ElementsAre("Switching to Turbo Mode, memory taken: 45000000, Turbo Memory "
                                    "ULimit: 45000000, Mode: 1"));
    network.sleepTime = 20;
    turboAt(LIMIT); // both controls at once
    turboAt(TURBO_OFF + 1);
    EXPECT_THAT(calls, IsEmpty());
    told();
    turboAt(TURBO_OFF);
    EXPECT_THAT(std::exchange(calls, {}), ElementsAre("network sleep 777", "network priority 7",
                                                      "events sleep 2000", "events priority 5"));
    EXPECT_THAT(told(), ElementsAre("Switching to Normal Mode, memory taken: 24000000, Turbo Memory "
                                    "LLimit: 24000000, Mode: 2"));
    turboAt(TURBO_OFF);
    memoryMonitor->leaveTurboMode(nullptr);
    EXPECT_THAT(calls, IsEmpty());
}

TEST_F(MemoryMonitorTest, TurboUsesTheConfiguredFiguresAndIsLeftOnDemand) {
    restart("na.turbo.priority=9 na.turbo.sleep=31 ea.turbo.priority=6 ea.turbo.sleep=32 "
            "na.thread.priority=4 ea.thread.priority=3");
    EXPECT_THAT(told(),
                testing::IsSupersetOf(
                    {std::string("EA Normal Priority: 3, EA Turbo Priority: 6, EA Turbo Sleep: 32 "),
                     std::string("NA Normal Priority: 4, NA Turbo Priority: 9, NA Turbo Sleep: 31 ")}));
    turboAt(TURBO_ON);
    memoryMonitor->leaveTurboMode(nullptr);
    EXPECT_THAT(std::exchange(calls, {}),
                ElementsAre("network sleep 31", "network priority 9", "events sleep 32", "events priority 6",
                            "network sleep 777", "network priority 4", "events sleep 2000",
                            "events priority 3"));
    MemoryMonitor::setNetworkPool(nullptr);
    MemoryMonitor::setEventPool(nullptr);
    turboAt(TURBO_ON);
    MemoryMonitor::setNetworkPool(&network);
    turboAt(TURBO_OFF);
    EXPECT_THAT(calls, ElementsAre("network sleep 0", "network priority 4"));
}

// Between two checks producers and agents tell what the queues grew by.
TEST_F(MemoryMonitorTest, GrowthStopsNewDataAtTheLimitAndNotAPassLater) {
    restart("");
    const auto check = [] { return memoryMonitor->checkAccount(); };
    network.bytes = 1000;
    check();
    memoryMonitor->noteGrowth(LIMIT - MINIMUM - 2000);
    memoryMonitor->noteGrowth(999);
    EXPECT_FALSE(check()); // and forgets nothing
    memoryMonitor->noteGrowth(-500);
    memoryMonitor->noteGrowth(500);
    EXPECT_FALSE(notAccepting);
    told();
    network.bytes = 999;
    memoryMonitor->noteGrowth(1);
    EXPECT_FALSE(notAccepting); // the limit in the figures of the last check only
    memoryMonitor->noteGrowth(1);
    memoryMonitor->noteGrowth(1);
    EXPECT_TRUE(notAccepting);
    EXPECT_THAT(log.numbers(), ElementsAre(1054)); // told once
    memoryMonitor->noteGrowth(int64_t{RESUME} - LIMIT - 1);
    EXPECT_FALSE(check());
    checkAt(LIMIT);
    restart("");
    check();
    memoryMonitor->noteGrowth(LIMIT - MINIMUM - 1000);
    EXPECT_FALSE(notAccepting); // a start begins at nothing
}

// A receiver that does not read must not hold application threads at the gate for ever.
TEST_F(MemoryMonitorTest, TurboThatBringsNothingEndsAndWaitsForALowTotal) {
    restart("");
    const auto passes = [this](uint32_t bytes) {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        int count = 0;
        while (memoryMonitor->inTurboMode() && std::chrono::steady_clock::now() < end) {
            turboAt(bytes);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ++count;
        }
        return count;
    };
    turboAt(TURBO_ON);
    turboAt(TURBO_ON - 1000);
    EXPECT_GT(passes(TURBO_ON - 1000), 1); // not at once
    EXPECT_FALSE(memoryMonitor->inTurboMode());
    turboAt(TURBO_ON);
    EXPECT_FALSE(memoryMonitor->inTurboMode());
    turboAt(TURBO_OFF);
    turboAt(TURBO_ON);
    EXPECT_TRUE(memoryMonitor->inTurboMode());
    turboAt(TURBO_OFF);
}

// ---------------------------------------------------------------- properties

TEST_F(MemoryMonitorTest, ValidatesItsLimits) {
    const std::string zeroUpper = "turbo.mem.ulimit is 0, invalid value, resetting it to 0.750000";
    const std::string zeroLower = "turbo.mem.llimit is 0, invalid value, resetting it to 0.400000";
    const std::string badUpper = "Invalid Turbo Mode ULimit 4100000, resetting to 75000000 bytes";
    const auto badLower = [](const char *bytes) {
        return std::string("Invalid Turbo Mode LLimit ") + bytes + ", resetting to 40000000 bytes";
    };
    const auto ignored = [](const char *bytes) {
        return std::string("Ignoring user specified Memory Limit as it's less than minimum limit, ") + bytes +
               " MB";
    };
    const auto halved = [](const char *bytes) {
        return std::string("Accept threshold is greater than Max Limit - Min Limit, using ") + bytes;
    };
    const struct {
        const char *settings;
        const char *limits; // memory limit, accept threshold, turbo's lower and upper limit
        std::vector<std::string> complaints;
    } cases[] = {
        {"", "60000000 2000000 24000000 45000000", {}},
        {"internal.memory.limit=1",
         "6048000 0 40000000 4536000",
         {ignored("6048000"), halved("0"), badLower("2419200")}},
        {"internal.memory.limit=1 internal.probe.event.packet.size=0",
         "6048000 0 40000000 4536000",
         {ignored("6048000"), halved("0"), badLower("2419200")}},
        {"internal.memory.limit=600 eventagent.pool.size=300 internal.memory.accept.threshold=600",
         "600000000 35856000 240000000 450000000",
         {halved("35856000")}},
        {"internal.memory.limit=8 eventagent.pool.size=3 internal.probe.event.packet.size=1001 "
         "internal.memory.accept.threshold=1",
         "8000000 462464 40000000 6000000",
         {halved("462464"), badLower("3200000")}},
        {"internal.memory.accept.threshold=53", "60000000 53000000 24000000 45000000", {}},
        {"internal.memory.accept.threshold=54", "60000000 26976000 24000000 45000000", {halved("26976000")}},
        {"turbo.mem.ulimit=0.0 turbo.mem.llimit=.0",
         "60000000 2000000 24000000 45000000",
         {zeroUpper, zeroLower}},
        {"internal.memory.limit=41 turbo.mem.ulimit=0.1 turbo.mem.llimit=0.1",
         "41000000 2000000 40000000 75000000",
         {badUpper, badLower("4100000")}},
        {"internal.memory.limit=41 turbo.mem.ulimit=0.10000003 turbo.mem.llimit=0.10000003",
         "41000000 2000000 4100001 4100001",
         {}},
        {"internal.memory.limit=1 eventagent.pool.size=2147483647 "
         "internal.probe.event.packet.size=2097151",
         "2147483647 0 858993472 1610612736",
         {ignored("2147483647"), halved("0")}},
    };
    for (const auto &c : cases) {
        told();
        restart(c.settings);
        std::vector<std::string> lines = told();
        std::string limit, threshold, turboLower, turboUpper;
        std::istringstream(c.limits) >> limit >> threshold >> turboLower >> turboUpper;
        const std::string summary = "Memory Monitor properties, ULimit " + limit +
                                    " bytes, Accept Threshold " + threshold +
                                    " bytes, URL Limit: 1000, SQL Limit: 5000";
        std::vector<std::string> expected = c.complaints;
        expected.push_back(" " + summary);
        expected.push_back(summary + " TurboLLimit: " + turboLower + ", TurboULimit: " + turboUpper);
        expected.emplace_back("EA Normal Priority: 5, EA Turbo Priority: 8, EA Turbo Sleep: 20 ");
        expected.emplace_back("NA Normal Priority: 7, NA Turbo Priority: 10, NA Turbo Sleep: 20 ");
        expected.emplace_back("Queue counter resets every 1800 iterations");
        expected.emplace_back("MemoryMonitor started");
        EXPECT_EQ(lines, expected);
        memoryMonitor->checkForULimit(0); // arithmetic holds whatever the configuration
        memoryMonitor->checkForULimit(UINT32_MAX);
    }
}

TEST_F(MemoryMonitorTest, StartSetsEverythingMeasuredBack) {
    restart("internal.url.limit=50 internal.sql.limit=60");
    EXPECT_EQ(urlLimit, 50);
    EXPECT_EQ(sqlLimit, 60);
    for (const int length : {10, 20}) {
        checkAt(LIMIT);
        EXPECT_TRUE(notAccepting);
        EXPECT_EQ(averageSqlLength, 1000);
        for (int i = 0; i < 70000; ++i) { // the first 254 count, with 253 / 254 cut off
            sqlSamples.add(i < 253 ? length : i == 253 ? length + 253 : 9999);
        }
        EXPECT_EQ(averageSqlLength, length);
        restart("");
        EXPECT_FALSE(notAccepting);
        EXPECT_EQ(averageSqlLength, 1000);
        EXPECT_EQ(averageUrlLength, 100);
    }
    EXPECT_EQ(urlLimit, 1000);
    EXPECT_EQ(sqlLimit, 5000);
}

// ---------------------------------------------------------------- the gate, one thread

TEST_F(MemoryMonitorTest, GateAnswersWithoutAThreadOfItsOwn) {
    restart("");
    ThreadMgr::setThreadTaker(nullptr);
    turboAt(TURBO_ON); // such a thread neither waits nor marks
    const struct {
        bool disabled, refusing, answer;
    } cases[] = {{false, false, false}, {false, true, true}, {true, false, true}};
    for (const auto &c : cases) {
        probeDisabled = c.disabled;
        notAccepting = c.refusing;
        EXPECT_EQ(shouldReject(fakeEnv(1)), c.answer);
        EXPECT_EQ(shouldReject(nullptr), c.answer);
    }
}

TEST_F(MemoryMonitorTest, EachThreadMarksTheMemoryLimitOnce) {
    restart("");
    JNIEnv *first = fakeEnv(1);
    JNIEnv *second = fakeEnv(2);
    for (int round = 0; round < 2; ++round) {
        checkAt(LIMIT);
        for (int call = 0; call < 3; ++call) {
            EXPECT_TRUE(shouldReject(first));
        }
        EXPECT_TRUE(shouldReject(second));
        EXPECT_THAT(queued(first), ElementsAre("marker"));
        EXPECT_THAT(queued(second), ElementsAre("marker"));
        checkAt(RESUME);
        EXPECT_FALSE(shouldReject(first)); // rearms; the second thread does so in the next round only
        EXPECT_FALSE(shouldReject(second));
        EXPECT_THAT(queued(first), IsEmpty());
    }
    checkAt(LIMIT);
    probeDisabled = true; // comes first: no marker
    EXPECT_TRUE(shouldReject(first));
    EXPECT_THAT(queued(first), IsEmpty());
}

TEST_F(MemoryMonitorTest, TurboRefusesThreadsOutsideARequestUntilItIsOver) {
    restart("");
    JNIEnv *env = fakeEnv(1);
    ThreadData *td = threadMgr->getThreadData(env);
    for (int round = 0; round < 2; ++round) {
        turboAt(TURBO_ON);
        EXPECT_TRUE(shouldReject(env));
        td->requestDepth = 1; // what began meanwhile was refused: no reason to wait for it
        EXPECT_TRUE(shouldReject(env));
        EXPECT_THAT(queued(env), ElementsAre("marker"));
        EXPECT_FALSE(td->acceptingNewRequests);
        turboAt(TURBO_OFF);
        EXPECT_FALSE(shouldReject(env));
        EXPECT_TRUE(td->acceptingNewRequests);
        td->requestDepth = round == 0 ? 0 : -1;
        EXPECT_THAT(queued(env), IsEmpty());
    }
    turboAt(
        LIMIT); // both at once: turbo's refusal comes first, one marker for it and later one for the limit
    td->requestDepth = 0;
    EXPECT_TRUE(shouldReject(env));
    memoryMonitor->leaveTurboMode(nullptr);
    EXPECT_TRUE(shouldReject(env));
    EXPECT_THAT(queued(env), ElementsAre("marker", "marker"));
}

// ---------------------------------------------------------------- the gate, many threads

// Application threads that each call the gate once, in turbo mode.
class Crowd {
public:
    Crowd(int size, int depth)
        : threads([this, size, depth] {
              onThreads(size, [this, depth](int i) {
                  threadMgr->getThreadData(fakeEnv(100 + i))->requestDepth = depth;
                  ++arrived;
                  refused += shouldReject(fakeEnv(100 + i)) ? 1 : 0;
                  ++passed;
              });
          }) {
        while (arrived < size) {
            std::this_thread::yield();
        }
    }

    std::atomic<int> arrived{0};
    std::atomic<int> refused{0};
    std::atomic<int> passed{0};
    std::thread threads; // begun last: they use the others
};

TEST_F(MemoryMonitorTest, CrowdWaitsAtTheGateAndEveryoneGetsOut) {
    constexpr int CROWD = 16;
    enum class End { Relief, AgentLeaves, ProbeStops };
    const struct {
        const char *allowNew;
        int depth;
        End end;
        int refused;
    } cases[] = {
        {"true", 1, End::Relief, 0},          {"true", 2, End::AgentLeaves, 0},
        {"true", 1, End::ProbeStops, CROWD},  {"false", 0, End::Relief, 0},
        {"false", 1, End::Relief, 0},         {"false", 0, End::AgentLeaves, 0},
        {"false", 1, End::ProbeStops, CROWD},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(testing::Message() << c.allowNew << " " << c.depth << " " << static_cast<int>(c.end));
        probeDisabled = false;
        restart(std::string("") + "turbomode.allownew=" + c.allowNew);
        turboAt(TURBO_ON);
        Crowd crowd(CROWD, c.depth);
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_EQ(crowd.passed, 0);
        probeDisabled = c.end == End::ProbeStops;
        if (c.end == End::AgentLeaves) {
            memoryMonitor->leaveTurboMode(nullptr);
        } else {
            turboAt(c.end == End::Relief ? TURBO_OFF : TURBO_ON);
        }
        crowd.threads.join();
        EXPECT_EQ(crowd.passed, CROWD);
        EXPECT_EQ(crowd.refused, c.refused);
        for (int i = 0; i < CROWD; ++i) {
            EXPECT_THAT(queued(fakeEnv(100 + i)), IsEmpty());
        }
        if (c.end == End::ProbeStops) {
            turboAt(LIMIT); // does not begin again meanwhile
            EXPECT_FALSE(memoryMonitor->inTurboMode());
        }
    }
}

TEST_F(MemoryMonitorTest, GoesOnlyWhenTheLastThreadHasLeftTheGate) {
    for (int round = 0; round < 20; ++round) {
        MemoryMonitor::create();
        probeDisabled = false;
        restart("");
        turboAt(TURBO_ON);
        Crowd crowd(8, 1);
        std::this_thread::sleep_for(
            std::chrono::milliseconds(round)); // some still on their way, or all inside
        probeDisabled = true;
        memoryMonitor->leaveTurboMode(nullptr);
        while (round < 10 && crowd.passed < 8) {
            std::this_thread::yield();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // as the stop's time of grace
        MemoryMonitor::destroy();
        crowd.threads.join();
        EXPECT_EQ(crowd.passed, 8);
    }
}

TEST_F(MemoryMonitorTest, ControlsAndGateRunBesideEachOther) {
    constexpr int THREADS = 4;
    restart("");
    std::atomic<bool> done{false};
    std::atomic<long> accepted{0};
    std::atomic<long> rejected{0};
    std::thread threads([&] {
        onThreads(THREADS, [&](int i) {
            JNIEnv *env = fakeEnv(200 + i);
            ThreadData *td = threadMgr->getThreadData(env);
            for (long call = 0; !done; ++call) {
                td->requestDepth = static_cast<int32_t>(call % 3);
                ++(shouldReject(env) ? rejected : accepted);
                takeFirst(*td->eventQueue);
                sqlSamples.add(30);
            }
        });
    });
    for (int i = 0; i < 300; ++i) {
        for (const uint32_t total : {TURBO_ON, LIMIT, RESUME, TURBO_OFF}) {
            turboAt(total);
            std::this_thread::yield();
        }
    }
    while (accepted == 0 || rejected == 0) {
        turboAt(rejected == 0 ? LIMIT : TURBO_OFF);
        std::this_thread::yield();
    }
    memoryMonitor->leaveTurboMode(nullptr);
    done = true;
    threads.join();
}

} // namespace
