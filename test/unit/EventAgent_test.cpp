#include "Threads.h"
#include "pump_test_support.h"

#include <gtest/gtest.h>

#include <set>

using namespace pump_test;

namespace {

constexpr char TOO_SMALL[] =
    "Event Agent buffer is too small. need %d bytes more. EVENT DROPPED.\nConsider increasing "
    "internal.probe.event.packet.size property in file runtime/*/datacollector.properties";
constexpr int ROOM = 1024 - 512 - 7;           // for records, in a packet of 1 KB
constexpr int SQL_RECORD = 22 + 1 + 2 + 2 + 2; // of an SQL begin, its text left out
constexpr int DROPPED_RECORD = 31;

class EventAgentTest : public PumpTest {
protected:
    // Starts with the leader held ahead of its first pass, and connected.
    void startHeld() {
        server.emplace();
        stepper.hold();
        startAndWait();
        stepper.awaitArrival();
        ASSERT_TRUE(eventually([this] { return mgr->isConnected(&probe); }));
    }
    std::vector<std::string> textsAfter(size_t count) {
        EXPECT_TRUE(eventually([&] { return received().size() >= count; }));
        return receivedTexts();
    }

    // False while the gate is shut or nobody takes threads.
    static bool produceOne(CallGate &gate, FakeJni &jni, bool last) {
        const CallGate::Pass pass(gate);
        ThreadData *td = pass ? threadOf(jni) : nullptr;
        if (td == nullptr) {
            return false;
        }
        appendSqlStart(td, "load");
        if (last) {
            endThread(jni);
        }
        return true;
    }

    NetworkClient probe;
};

std::string key(int producer, int life) {
    return std::to_string(producer) + "." + std::to_string(life);
}

} // namespace

// ---------------------------------------------------------------- nothing lost, nothing twice

struct PumpShape {
    const char *pool;
    const char *popSize;
    const char *packetKB;
};

class EveryEvent : public EventAgentTest, public ::testing::WithParamInterface<PumpShape> {
protected:
    static constexpr int PRODUCERS = 5;
    static constexpr int LIVES = 400;
    static constexpr int EVENTS = 5;

    // One application thread: some lives, each with events of many lengths and an end right behind the last.
    static void produce(int producer) {
        FakeJni jni;
        for (int life = 0; life < LIVES; ++life) {
            for (int i = 0; i < EVENTS; ++i) {
                ThreadData *td = threadOf(jni);
                ASSERT_NE(nullptr, td);
                const std::string text = key(producer, life) + ":" + std::to_string(i) + " ";
                ASSERT_TRUE(appendSqlStart(td, text + std::string((producer + i * 7) % 180, 'x')));
            }
            endThread(jni);
        }
    }

    // How many of each life arrived, as long as they came in order.
    std::map<std::string, int> inOrder() {
        std::map<std::string, int> counts;
        for (const Received &record : received(true)) {
            const size_t colon = record.text.find(':');
            int &count = counts[record.text.substr(0, colon)];
            EXPECT_EQ(count, std::stoi(record.text.substr(colon + 1))) << record.text;
            ++count;
        }
        return counts;
    }
};

TEST_P(EveryEvent, ArrivesOnceAndInOrder) {
    properties.set("eventagent.pool.size", GetParam().pool);
    properties.set("ea.popevent.size", GetParam().popSize);
    properties.set("internal.probe.event.packet.size", GetParam().packetKB);
    server.emplace();
    start();
    // All agents: a thread of an agent that came later would be listed by none of them.
    ASSERT_TRUE(eventually([this] {
        return pump()->canTakeThreads() && mgr->isConnected(&probe) &&
               threadMgr.get()->getThreadCount() == pump()->getPoolSize();
    }));
    onThreads(PRODUCERS, produce);
    constexpr size_t ALL = PRODUCERS * LIVES * EVENTS;
    EXPECT_TRUE(eventually([this] { return received().size() >= ALL; })) << received().size();
    EXPECT_TRUE(eventually([this] { return pump()->getTotalDataSize() == 0; })) << "accounts must balance";
    EXPECT_EQ(pump()->getPoolSize(), threadMgr.get()->getThreadCount()) << "only the agents' own are left";
    EXPECT_EQ(0, pump()->getNumberOfEvents());
    const std::map<std::string, int> counts = inOrder();
    EXPECT_EQ(static_cast<size_t>(PRODUCERS * LIVES), counts.size());
    for (const auto &life : counts) {
        EXPECT_EQ(EVENTS, life.second) << life.first;
    }
    EXPECT_EQ(0, log.messages(1041));
    EXPECT_EQ(0, log.count(TOO_SMALL));
}

INSTANTIATE_TEST_SUITE_P(Shapes, EveryEvent,
                         ::testing::Values(PumpShape{"1", "1", "1"}, PumpShape{"1", "7", "1"},
                                           PumpShape{"2", "1", "2000"}, PumpShape{"3", "100", "1"}));

// ---------------------------------------------------------------- packets

TEST_F(EventAgentTest, APacketIsFilledToItsLastByte) {
    properties.set("internal.probe.event.packet.size", "1");
    startHeld();
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    const std::string exact(ROOM - SQL_RECORD, 'a');
    const std::string half((ROOM - 2 * SQL_RECORD) / 2, 'b');
    const std::string otherHalf(ROOM - 2 * SQL_RECORD - half.size(), 'c');
    const std::vector<std::string> texts = {exact, half, otherHalf, "d", exact, "e"};
    for (const std::string &text : texts) {
        appendSqlStart(td, text);
    }
    // The first packet is full at its end, so is the second; "d" and the next do not go together.
    const int left[] = {5, 3, 2, 1, 0};
    for (const int count : left) {
        stepper.step();
        EXPECT_EQ(count, td->queueSize());
        EXPECT_EQ(count, pump()->getNumberOfEvents());
    }
    EXPECT_EQ(texts, textsAfter(texts.size()));
}

TEST_F(EventAgentTest, AnEventLargerThanAPacketGoesAlone) {
    properties.set("internal.probe.event.packet.size", "1");
    for (const char *popSize : {"1", "4"}) {
        properties.set("ea.popevent.size", popSize);
        startHeld();
        FakeJni jni;
        ThreadData *td = threadOf(jni);
        const std::string tooLong(ROOM - SQL_RECORD + 1, 'x');
        const int before = log.count(TOO_SMALL);
        for (const std::string &text : {tooLong, std::string("one"), tooLong, tooLong, std::string("two")}) {
            appendSqlStart(td, text);
        }
        appendSqlStart(td, "three");
        stepper.release();
        EXPECT_EQ((std::vector<std::string>{"one", "two", "three"}), textsAfter(3));
        EXPECT_EQ(3, log.count(TOO_SMALL) - before);
        EXPECT_TRUE(eventually([this] { return pump()->getTotalDataSize() == 0; }));
        stop();
        NetworkAgentMgr::destroy();
        delete evtAgentMgr.get();
        server.reset();
    }
}

// ---------------------------------------------------------------- queues that are too long

using Make = bool (*)(ThreadData *td, Event::EventSubType subType);
template <typename E>
bool make(ThreadData *td, Event::EventSubType subType) {
    return append<E>(td, subType);
}

constexpr Make SQL = make<SQLEvent>;
constexpr Make METHOD = make<MethodEvent>;
constexpr Make HTTP = make<HttpEvent>;
constexpr Make SAMPLING = [](ThreadData *td, Event::EventSubType) { return append<SamplingEvent>(td); };

struct Overfull {
    const char *name;
    std::vector<Make> oldest; // in front of a full queue
    Event::EventSubType subType;
    std::vector<uint32_t> counters; // of the record that tells of drops; empty: there is none
    int messages;
};

class AnOverfullQueue : public EventAgentTest, public ::testing::WithParamInterface<Overfull> {};

TEST_P(AnOverfullQueue, LosesItsOldestAndSaysSo) {
    constexpr int LIMIT = 20;
    properties.set("internal.probe.event.queue.size.limit", std::to_string(LIMIT));
    startHeld();
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    int kept = 0;
    for (const Make oldest : GetParam().oldest) {
        kept += oldest == SAMPLING ? 1 : 0;
        oldest(td, GetParam().subType);
    }
    for (int i = 0; i < LIMIT; ++i) {
        appendSqlStart(td, std::to_string(i));
    }
    stepper.step();
    const bool told = !GetParam().counters.empty();
    const size_t expected = static_cast<size_t>(LIMIT + kept + (told ? 1 : 0));
    textsAfter(expected);
    std::vector<Received> records = received(true);
    ASSERT_EQ(expected, records.size());
    if (told) {
        EXPECT_EQ(11, records.front().type);
        EXPECT_EQ(td->threadId, records.front().threadId);
        EXPECT_EQ(GetParam().counters, records.front().counters);
        records.erase(records.begin());
    }
    for (int i = 0; i < kept; ++i) {
        EXPECT_EQ(39, records[static_cast<size_t>(i)].type) << "what is protected keeps its place";
    }
    EXPECT_EQ(std::to_string(LIMIT - 1), records.back().text);
    EXPECT_EQ(GetParam().messages, log.messages(1044));
    stepper.step();
    EXPECT_EQ(0, pump()->getTotalDataSize());
}

INSTANTIATE_TEST_SUITE_P(
    Cases, AnOverfullQueue,
    ::testing::Values(
        Overfull{"OneOfEach", {SQL, METHOD, HTTP, HTTP}, Event::SUB_START, {2, 0, 1, 0, 1, 0}, 1},
        Overfull{"Ends", {SQL, SQL, METHOD, HTTP}, Event::SUB_END, {0, 1, 0, 1, 0, 2}, 1},
        Overfull{"ProtectedBetween", {SAMPLING, SQL, SAMPLING}, Event::SUB_START, {0, 0, 0, 0, 1, 0}, 1},
        Overfull{"OnlyProtected", {SAMPLING}, Event::SUB_START, {}, 0},
        Overfull{"CountedNowhere", {SQL}, Event::SUB_ALONE, {}, 1},
        Overfull{"WithinTheLimit", {}, Event::SUB_START, {}, 0}),
    [](const auto &info) { return std::string(info.param.name); });

// However much room the packet has left, the record of drops stands in it whole, or at the head of the next.
TEST_F(EventAgentTest, TheRecordOfDropsIsNeverCut) {
    properties.set("internal.probe.event.packet.size", "1");
    properties.set("internal.probe.event.queue.size.limit", "3");
    startHeld();
    FakeJni first;
    ThreadData *filler = threadOf(first);
    size_t expected = 0;
    FakeJni last;
    for (int left = DROPPED_RECORD + 2; left >= 0; --left) {
        appendSqlStart(filler, std::string(static_cast<size_t>(ROOM - SQL_RECORD - left), 'f'));
        FakeJni ending; // so that each round begins ahead of the filler; the last one stays, for its accounts
        FakeJni &jni = left > 0 ? ending : last;
        ThreadData *overfull = threadOf(jni);
        for (const char *text : {"gone", "1", "2", "3"}) {
            appendSqlStart(overfull, text);
        }
        endThread(ending);
        stepper.step(4);
        expected += 5;
        ASSERT_TRUE(eventually([&] { return received().size() == expected; })) << left;
        const std::vector<Received> records = received(true);
        const Received &told = records[expected - 4];
        EXPECT_EQ(11, told.type) << left;
        EXPECT_EQ((std::vector<uint32_t>{0, 0, 0, 0, 1, 0}), told.counters) << left;
        EXPECT_EQ("1", records[expected - 3].text) << left;
    }
    EXPECT_EQ(0, pump()->getTotalDataSize());
}

TEST_F(EventAgentTest, WhatWasRefusedAtAppendIsToldOnce) {
    startHeld();
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    for (int i = 0; i < 5010; ++i) {
        appendSqlStart(td, "x");
    }
    stepper.step(2);
    EXPECT_EQ(1, log.messages(1044));
    EXPECT_EQ(0, td->droppedAtAppend);
    ASSERT_TRUE(eventually([&] { return received().size() >= 5001; }));
    std::vector<Received> records = received();
    // The marker of the refusals has pushed the queue one over the limit.
    EXPECT_EQ((std::vector<uint32_t>{0, 0, 0, 0, 1, 0}), records.front().counters);
    EXPECT_EQ((std::vector<uint32_t>(6)), records.back().counters);
    EXPECT_EQ(4999,
              std::count_if(records.begin(), records.end(), [](const Received &r) { return r.type == 9; }));
}

// ---------------------------------------------------------------- outages

// 30 seconds at two seconds a pass are 15 passes. The first arrival is ahead of the first pass, the second
// ahead of the first drop: pass number n is over at arrival n + 2.
TEST_F(EventAgentTest, WithoutAServerQueuesAreKeptShort) {
    properties.set("internal.probe.publishing.frequency", "2000");
    stepper.hold();
    startAndWait();
    pump()->setSleepTime(1);
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    append<SamplingEvent>(td);
    for (int i = 0; i < 3000; ++i) {
        appendSqlStart(td, std::to_string(i));
    }
    stepper.step();
    for (int pass = 1; pass <= 14; ++pass) {
        FakeJni ending;
        append<SQLEvent>(threadOf(ending), Event::SUB_START);
        endThread(ending);
        stepper.step();
        EXPECT_EQ(3001, td->queueSize()) << pass;
        EXPECT_EQ(2, threadMgr.get()->getThreadCount());
        EXPECT_EQ(pass >= 5 ? 1 : 0, log.messages(1043)) << pass;
    }
    stepper.step();
    EXPECT_EQ(1001, td->queueSize());
    const Queued oldest = takeFirst(*td->eventQueue);
    EXPECT_EQ(Event::TYPE_SAMPLING, oldest->type) << "the protected one stays in front";
    td->addToConsumed(*oldest);
    stepper.step();
    EXPECT_EQ(1000, td->queueSize());
    EXPECT_EQ(static_cast<int32_t>(1000 * sizeof(SQLEvent)), pump()->getTotalDataSize());
    EXPECT_EQ(1, log.messages(1043));
    EXPECT_EQ(0, log.messages(1044)) << "no record, no message for a thread";
    stop();
    EXPECT_EQ(0, pump()->getNumberOfEvents());
    EXPECT_EQ(0, pump()->getTotalDataSize());
}

TEST_F(EventAgentTest, TheLeaderSendsTheInitialDataBeforeTheOthersMaySend) {
    properties.set("eventagent.pool.size", "2");
    server.emplace();
    stepper.hold();
    start(1);
    ASSERT_TRUE(eventually([this] { return pump()->canTakeThreads() && mgr->isConnected(&probe); }));
    stepper.awaitArrival();
    runAgent(1);
    ASSERT_TRUE(eventually([] { return threadMgr.get()->getThreadCount() == 2; }));
    // Threads that went to agent 1 are emptied while the leader is held.
    std::vector<std::unique_ptr<FakeJni>> environments;
    ThreadData *others = nullptr;
    for (int i = 0; i < 4 && others == nullptr; ++i) {
        environments.push_back(std::make_unique<FakeJni>());
        ThreadData *td = threadOf(*environments.back());
        appendSqlStart(td, "before");
        others = eventually([&] { return td->queueSize() == 0; }, 2000) ? td : nullptr;
    }
    ASSERT_NE(nullptr, others);

    ThreadData *special = pump()->getSpecialThreadData();
    Draft<PSStatusEvent> old;
    old.put(old->message, "for the old connection", 22);
    special->appendEvent(&old);
    resendHook = [](JNIEnv *) { append<SamplingEvent>(pump()->getSpecialThreadData()); };
    pump()->notifySocketStatus();
    std::this_thread::sleep_for(milliseconds(400)); // a pass that began before may still send
    appendSqlStart(others, "after");
    std::this_thread::sleep_for(milliseconds(150));
    EXPECT_EQ(1, others->queueSize());
    EXPECT_EQ(0, FakeJni::calls);

    stepper.release();
    ASSERT_TRUE(receivesText("after"));
    EXPECT_EQ(1, FakeJni::calls) << "sendAllClassEvents";
    std::vector<int> types;
    for (const Received &record : received()) {
        types.push_back(record.type);
        EXPECT_NE("for the old connection", record.text);
    }
    EXPECT_EQ(1, std::count(types.begin(), types.end(), 39));
}

TEST_F(EventAgentTest, ALostConnectionBringsTheInitialDataAgain) {
    FakeJni::classesMissing = true; // and no word about it
    server.emplace();
    startAndWait();
    resendHook = [](JNIEnv *) { append<SamplingEvent>(pump()->getSpecialThreadData()); };
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    appendSqlStart(td, "first");
    ASSERT_TRUE(receivesText("first"));
    server->resetAll();
    int sent = 0;
    ASSERT_TRUE(eventually([&] {
        appendSqlStart(td, std::to_string(sent++));
        return server->count() == 2;
    }));
    appendSqlStart(td, "last");
    ASSERT_TRUE(receivesText("last"));
    const Stream again(server->bytes(1));
    EXPECT_EQ(1, std::count_if(again.records.begin(), again.records.end(),
                               [](const Received &record) { return record.type == 39; }));
}

// ---------------------------------------------------------------- pauses and the end

TEST_F(EventAgentTest, WithoutSleepAPassFollowsASentPacketAndAStopWakesTheSleeper) {
    properties.set("internal.probe.publishing.frequency", "60000");
    properties.set("eventagent.no.sleep", "TRUE");
    startHeld();
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    const auto begin = Clock::now();
    for (int i = 0; i < 3; ++i) {
        appendSqlStart(td, "x");
        stepper.step();
    }
    EXPECT_GT(5000, millisSince(begin));
    stepper.release(); // the pass finds nothing and sleeps for two minutes
    std::this_thread::sleep_for(milliseconds(20));
    stop();
    EXPECT_GT(20000, millisSince(begin));
}

TEST_F(EventAgentTest, AConnectionAndAQueueBeyondItsQuarterEndThePause) {
    properties.set("internal.probe.queue.wakeup", "true");
    properties.set("internal.probe.publishing.frequency", "60000");
    startAndWait();
    FakeJni jni;
    ThreadData *td = threadOf(jni);
    appendSqlStart(td, "early");
    server.emplace();
    answerWith(server->port());
    ASSERT_TRUE(receivesText("early"));
    for (int i = 0; i <= 5000 / 4; ++i) {
        appendSqlStart(td, std::to_string(i));
    }
    EXPECT_TRUE(receivesText("1249"));
}

// An environment whose thread another agent lists already: one queue, one reader.
TEST_F(EventAgentTest, AnAgentsThreadThatIsListedElsewhereIsNotListedTwice) {
    properties.set("eventagent.pool.size", "2");
    start(1);
    ASSERT_TRUE(eventually([] { return pump()->canTakeThreads(); }));
    std::atomic<ThreadData *> seen{nullptr};
    threads.emplace_back([&] {
        FakeJni jni;
        seen = threadOf(jni);
        pump()->startEvtAgent(jni.get(), 1);
        endThread(jni);
    });
    ASSERT_TRUE(eventually([] { return pump()->getRoundRobinIndex() == 1; }));
    appendSqlStart(seen, "x");
    EXPECT_EQ(1, pump()->getNumberOfEvents());
    pump()->stopEvtAgent(1);
    EXPECT_TRUE(eventually([] { return pump()->getNumberOfEvents() == 0; })) << "ended, destroyed once";
    EXPECT_EQ(1, threadMgr.get()->getThreadCount());
}

// As the probe does it: new events are shut off, what is under way gets out, then all managers stop.
TEST_F(EventAgentTest, CyclesOfStartAndStopUnderLoadLeaveNothing) {
    properties.set("eventagent.pool.size", "2");
    server.emplace();
    CallGate producing;
    std::atomic<bool> done{false};
    std::vector<std::thread> producers;
    for (int i = 0; i < 4; ++i) {
        producers.emplace_back([&, i] {
            FakeJni jni;
            for (int n = 0; !done; ++n) {
                if (!produceOne(producing, jni, n % 50 == i)) {
                    std::this_thread::sleep_for(milliseconds(1));
                }
            }
        });
    }
    for (int cycle = 0; cycle < 3; ++cycle) {
        start();
        producing.open();
        EXPECT_TRUE(eventually([this, cycle] {
            return server->count() > static_cast<size_t>(cycle) &&
                   Stream(server->bytes(static_cast<size_t>(cycle))).records.size() > 500;
        }));
        producing.close();
        EXPECT_TRUE(eventually([&] { return producing.isEmpty(); }));
        stop();
        EXPECT_EQ(0, threadMgr.get()->getThreadCount());
    }
    done = true;
    for (std::thread &producer : producers) {
        producer.join();
    }
}
