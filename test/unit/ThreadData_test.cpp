#include "Threads.h"
#include "pump_test_support.h"

#include <gtest/gtest.h>

using namespace pump_test;

namespace {

constexpr int LIMIT = 5000;

class ThreadDataTest : public ::testing::Test {
protected:
    ThreadDataTest() { fixAppendLimit(); }
    ~ThreadDataTest() override { td.isAlive = false; }

    void fill(int count) {
        for (int i = 0; i < count; ++i) {
            ASSERT_TRUE(append<SQLEvent>(&td, Event::SUB_START));
        }
    }
    bool appendSql() { return append<SQLEvent>(&td, Event::SUB_END); }
    Queued pop() { return takeFirst(*td.eventQueue); }

    FakeVm vm;
    RecordedLog log;
    ThreadData td{fakeEnv(1)};
};

} // namespace

TEST_F(ThreadDataTest, RefusesAtTheLimitAndMarksTheGapOnce) {
    fill(LIMIT - 1);
    EXPECT_TRUE(appendSql());
    for (int refusal = 1; refusal <= 3; ++refusal) {
        EXPECT_FALSE(appendSql());
        EXPECT_EQ(refusal, td.droppedAtAppend);
        EXPECT_EQ(LIMIT + 1, td.queueSize()) << "one marker, behind the last event";
    }
    int position = 0;
    while (const Queued evt = pop()) {
        ++position;
        if (evt->type == Event::TYPE_DROPPED) {
            const DroppedEvent *marker = static_cast<DroppedEvent *>(evt.get());
            EXPECT_EQ(LIMIT + 1, position);
            EXPECT_EQ(Event::SUB_ALONE, marker->subType);
            EXPECT_EQ(0u, marker->threadId);
            EXPECT_EQ(0, marker->otherStarts + marker->otherEnds + marker->sqlStarts + marker->sqlEnds +
                             marker->methodStarts + marker->methodEnds);
        }
    }
}

TEST_F(ThreadDataTest, WhatTheReceiverNeedsMayExceedTheLimit) {
    fill(LIMIT);
    EXPECT_TRUE(append<ClassEvent>(&td, Event::SUB_CLASS_LOAD));
    EXPECT_TRUE(append<SamplingEvent>(&td));
    EXPECT_TRUE(append<DroppedEvent>(&td));
    EXPECT_TRUE(append<PortalMethodConstantEvent>(&td));
    EXPECT_EQ(LIMIT + 4, td.queueSize());
    EXPECT_EQ(0, td.droppedAtAppend);
    EXPECT_FALSE(td.droppedMarkerSent) << "nothing was refused";
}

TEST_F(ThreadDataTest, ANewOverflowGetsANewMarker) {
    fill(LIMIT);
    EXPECT_FALSE(appendSql());
    pop();
    EXPECT_FALSE(appendSql()) << "the marker takes the place";
    EXPECT_TRUE(td.droppedMarkerSent);
    pop();
    EXPECT_TRUE(appendSql());
    EXPECT_FALSE(td.droppedMarkerSent);
    EXPECT_FALSE(appendSql());
    EXPECT_TRUE(td.droppedMarkerSent);
    EXPECT_EQ(LIMIT + 1, td.queueSize());
}

TEST_F(ThreadDataTest, ASpecialQueueHasSeveralWriters) {
    constexpr int WRITERS = 4;
    constexpr int EACH = 10 * LIMIT;
    td.isShared = true;
    onThreads(WRITERS, [this](int) {
        for (int number = 0; number < EACH; ++number) {
            appendSql();
        }
    });
    EXPECT_EQ(LIMIT + 1, td.queueSize());
    EXPECT_EQ(static_cast<uint64_t>(WRITERS * EACH - LIMIT), td.takeRefused().sum());
    EXPECT_EQ(LIMIT * sizeof(SQLEvent) + sizeof(DroppedEvent), td.bytesQueued());
}

TEST_F(ThreadDataTest, AnEndedThreadTakesNothingMore) {
    fill(2);
    td.requestDepth = 3;
    td.inFlightBuffer1 = strdup("begun");
    td.deleteInFlightData();
    EXPECT_EQ(0, td.requestDepth);
    td.resetOnThreadEnd();
    EXPECT_FALSE(td.acceptsEvents());
    EXPECT_FALSE(append<SQLEvent>(&td, Event::SUB_START));
    EXPECT_EQ(2, td.queueSize()) << "what was queued before stays, to be sent";
    EXPECT_FALSE(td.appendEvent(nullptr));
    EXPECT_EQ(1, log.count("Append Event Thread is dead: %d, EvtType: %d Evt SubType: %d TID: %d"));
}
