#include "SentPackets.h"
#include "platform.h"
#include "pump_test_support.h"

#include <gtest/gtest.h>

using namespace pump_test;

namespace {

using Figures = std::vector<uint64_t>;

Figures listed(const DropFigures &figures) {
    return Figures(std::begin(figures.counts), std::end(figures.counts));
}

DropFigures sqlStarts(uint64_t number) {
    DropFigures figures;
    figures.counts[DropFigures::SQL_START] = number;
    return figures;
}

} // namespace

TEST(LossAccount, KnowsWhatIsLostWithAnEvent) {
    DroppedEvent told;
    told.otherStarts = 7;
    told.sqlEnds = INT32_MAX;
    const struct {
        std::unique_ptr<Event> event;
        Figures lost;
    } rows[] = {
        {std::make_unique<HttpEvent>(Event::SUB_START), {1, 0, 0, 0, 0, 0}},
        {std::make_unique<HttpEvent>(Event::SUB_FAILED), {0, 1, 0, 0, 0, 0}},
        {std::make_unique<MethodEvent>(Event::SUB_END), {0, 0, 0, 1, 0, 0}},
        {std::make_unique<SQLEvent>(Event::SUB_START), {0, 0, 0, 0, 1, 0}},
        {std::make_unique<GenericEvent>(Event::TYPE_GENERIC_START, 1), {1, 0, 0, 0, 0, 0}},
        {std::make_unique<GenericEvent>(Event::TYPE_GENERIC_STOP, 1), {0, 1, 0, 0, 0, 0}},
        {std::make_unique<TraceEvent>(), {0, 0, 0, 0, 0, 0}},
        {std::make_unique<GPSEvent>(Event::SUB_CORRELATED_RECEIVED), {0, 0, 0, 0, 0, 0}},
    };
    for (const auto &row : rows) {
        LossAccount account;
        account.enter(*row.event);
        EXPECT_EQ(row.lost, listed(account.take())) << row.event->type << " " << row.event->subType;
        EXPECT_TRUE(account.isEmpty());
    }
    LossAccount account;
    account.enter(told);
    account.enter(told);
    DroppedEvent one;
    account.take().fill(one);
    EXPECT_EQ(14, one.otherStarts);
    EXPECT_EQ(INT32_MAX, one.sqlEnds) << "the rest is for the next record";
    EXPECT_EQ((Figures{0, 0, 0, 0, 0, INT32_MAX}), listed(account.take()));
}

TEST(SentPackets, AreUnreadUntilTheReceiverMustHaveReadThem) {
    constexpr int64_t MB = 1 << 20;
    SentPackets sent;
    const auto unread = [&sent] { return sent.unread().sum(); };
    for (int packet = 0; packet < 12; ++packet) {
        sent.add(MB, sqlStarts(1), packet);
    }
    sent.acknowledged(3 * MB, 20); // the first is followed by as much as a buffer holds
    EXPECT_EQ(11u, unread());
    sent.acknowledged(MB, 1000000);
    EXPECT_EQ(9u, unread()) << "age counts for nothing while something waits";
    sent.acknowledged(0, SentPackets::READ_WITHIN_MS + 9);
    EXPECT_EQ(2u, unread());
    sent.add(MB, sqlStarts(5), 20);
    sent.forgetAcknowledged();
    EXPECT_EQ(5u, unread());
    sent.add(MB, {}, 21);
    EXPECT_FALSE(sent.allAcknowledged());

    sent.restart();
    for (int packet = 0; packet < 3 * SentPackets::CAPACITY; ++packet) {
        sent.add(1, sqlStarts(1), 0);
        EXPECT_EQ(static_cast<uint64_t>(packet + 1), unread()) << "none gets lost in the bounded record";
    }
}

// ---------------------------------------------------------------- the whole road

namespace {

// Whatever becomes of the events, each arrives or is told.
class ExactDrops : public PumpTest {
protected:
    ExactDrops() {
        properties.set("internal.probe.drops.exact", "true");
        while (!lossAccount.isEmpty()) {
            lossAccount.take();
        }
    }
    void startConnected(bool stalled = false) {
        server.emplace(stalled);
        startAndWait();
        ASSERT_TRUE(eventually([this] { return mgr->isConnected(&probe); }));
    }
    void begin(ThreadData *td, int events, size_t length = 10) {
        for (int i = 0; i < events; ++i) {
            appendSqlStart(td, std::string(length, 'x'));
        }
        begun += static_cast<uint64_t>(events);
    }
    void endAll() {
        stop();
        NetworkAgentMgr::destroy();
        delete evtAgentMgr.get();
    }
    // Until all events of the thread are on the connection.
    void awaitWritten(const NetworkAgent &agent) {
        ASSERT_TRUE(eventually([this] { return threadOf(jni)->queueSize() == 0; }));
        stepper.hold();
        stepper.step(); // the last packet is made at the end of a pass
        stepper.release();
        ASSERT_TRUE(eventually([&] { return agent.bytesQueued() == 0; }));
    }
    // A new thread with so many events, which ends behind them.
    void beginAndEnd(int events) {
        FakeJni jni;
        begin(threadOf(jni), events);
        endThread(jni);
    }
    void count() {
        decoded = told = 0;
        for (const Received &record : received()) {
            decoded += record.type == 9 ? 1 : 0;
            told += record.type == 11 ? record.counters[DropFigures::SQL_START] : 0;
        }
    }
    // Until what was begun has arrived or was told; `surplus`: more may be told than was lost.
    void expectBalance(bool surplus = false) {
        EXPECT_TRUE(eventually([=] {
            count();
            return surplus ? decoded + told >= begun : decoded + told == begun;
        })) << begun
            << " begun, " << decoded << " decoded, " << told << " told";
    }
    void expectAllDecoded() {
        expectBalance();
        EXPECT_EQ(begun, decoded);
    }

    FakeJni jni;
    NetworkClient probe;
    uint64_t begun = 0;
    uint64_t decoded = 0;
    uint64_t told = 0;
};

} // namespace

TEST_F(ExactDrops, PacketsThatAFullQueueRefuses) {
    for (const char *batch : {"1", "3"}) {
        begun = 0;
        properties.set("networkagent.buffer.limit", "3");
        properties.set("na.popbuffer.size", batch);
        properties.set("internal.probe.event.packet.size", "100");
        startConnected(true);
        ThreadData *td = threadOf(jni);
        ASSERT_TRUE(eventually([&] {
            begin(td, 300, 1000);
            return log.messages(1041) > 3;
        }));
        EXPECT_EQ(0, pump()->getSpecialThreadData()->droppedAtAppend);
        server->resume();
        expectBalance();
        EXPECT_LT(0u, told);
        endAll();
        log.clear();
    }
}

TEST_F(ExactDrops, EventsThatAQueueRefusesOrDrops) {
    startConnected();
    stepper.hold();
    stepper.awaitArrival();
    begin(threadOf(jni), 8000); // 2,999 refused, one dropped for the marker
    beginAndEnd(6000);
    stepper.release();
    expectBalance();
    EXPECT_LE(decoded, 2 * 5000u - 2);
    EXPECT_LT(0u, told);
}

TEST_F(ExactDrops, EventsThatFitInNoPacket) {
    properties.set("internal.probe.event.packet.size", "1");
    startConnected();
    begin(threadOf(jni), 3, 600);
    begin(threadOf(jni), 3);
    expectBalance();
    EXPECT_EQ(3u, told);
}

TEST_F(ExactDrops, TheFirstTrafficBehindALostConnection) {
    properties.set("networkagent.publish.frequency", "300"); // so that the traffic comes ahead of the look
    startConnected();
    begin(threadOf(jni), 100);
    expectAllDecoded();
    server->closeAll();
    begin(threadOf(jni), 500);
    expectBalance();
}

TEST_F(ExactDrops, ConnectionsThatAreRenewedByTime) {
    properties.set("networkagent.socket.resettime", "1000");
    properties.set("networkagent.buffer.limit", "4");
    startConnected();
    NetworkAgent *agent = mgr->getNetworkAgent(&probe);
    for (size_t renewal = 2; renewal < 4; ++renewal) {
        begin(threadOf(jni), 3000);
        mgr->stopNetworkAgent(nullptr, 0); // its steps are this thread's now
        beginAndEnd(3000);
        agent->alive_ = true;
        agent->resetConnectionOnExpiry(static_cast<uint32_t>(time(nullptr)) + 400);
        EXPECT_FALSE(agent->connected_);
        NetworkTest::runAgent(0);
        begin(threadOf(jni), 3000);
        ASSERT_TRUE(eventually([&] { return server->count() == renewal; }));
        expectBalance();
    }
}

// A minute at most.
TEST_F(ExactDrops, ARenewalWaitsForAReceiverThatIsBehind) {
    properties.set("networkagent.socket.resettime", "1000"); // 300 seconds at least
    for (const bool goesOn : {true, false}) {
        begun = 0;
        startConnected(true);
        const int64_t due = monotonicMicros() / 1000000 + 300;
        NetworkAgent *agent = mgr->getNetworkAgent(&probe);
        begin(threadOf(jni), 50, 1000);
        awaitWritten(*agent);
        mgr->stopNetworkAgent(nullptr, 0); // its steps are this thread's now
        agent->alive_ = true;
        agent->resetConnectionOnExpiry(due + 50);
        EXPECT_TRUE(agent->connected_);
        if (goesOn) {
            server->resume();
            EXPECT_TRUE(eventually([&] {
                agent->resetConnectionOnExpiry(due + 50);
                return !agent->connected_;
            }));
            EXPECT_TRUE(lossAccount.isEmpty());
            NetworkTest::runAgent(0);
            expectAllDecoded();
        } else {
            agent->resetConnectionOnExpiry(due + 61);
            EXPECT_FALSE(agent->connected_);
        }
        endAll();
    }
}

TEST_F(ExactDrops, EventsOfAnOutage) {
    properties.set("internal.probe.event.queue.size.limit", "50");
    startAndWait();
    beginAndEnd(300);
    begin(threadOf(jni), 200); // kept at 50
    ASSERT_TRUE(eventually([this] { return threadOf(jni)->queueSize() == 50; }));
    server.emplace();
    answerWith(server->port());
    expectBalance();
    EXPECT_EQ(50u, decoded);
}

TEST_F(ExactDrops, WhatAStopDestroysIsToldAfterTheNextStart) {
    startAndWait();
    begin(threadOf(jni), 700);
    endAll();
    startConnected();
    expectBalance();
    EXPECT_EQ(700u, told);
}

// The agent sleeps meanwhile and learns of it only on its way out.
TEST_F(ExactDrops, WhatWasUnderWayWhenAConnectionDiedAheadOfAStop) {
    startConnected(true);
    begin(threadOf(jni), 300);
    NetworkAgent *agent = mgr->getNetworkAgent(&probe);
    awaitWritten(*agent);
    agent->setSleepTime(20000);
    server->resetAll();
    endAll();
    startConnected();
    expectBalance();
    EXPECT_EQ(300u, told);
}

// What was under way may be told although it arrived, but nothing is missing.
TEST_F(ExactDrops, ConnectionsThatDieUnderLoad) {
    properties.set("networkagent.buffer.limit", "5");
    startConnected();
    for (int loss = 0; loss < 4; ++loss) {
        begin(threadOf(jni), 2000);
        const size_t before = server->count(); // one that is lost ahead of its initial block counts too
        server->resetAll();
        ASSERT_TRUE(eventually([&] {
            begin(threadOf(jni), 10);
            return server->count() > before;
        }));
    }
    expectBalance(true);
}
