#include "ProbeState.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

class Gate : public testing::Test {
protected:
    Gate() { reset(); }
    ~Gate() override { reset(); }
    static void reset() {
        probeDisabled = true;
        eventAgentReady = false;
        networkAgentReady = false;
    }
};

TEST_F(Gate, OpensWithTheSecondAgentAndIsNeverClosedByThem) {
    for (const bool eventFirst : {true, false}) {
        reset();
        const auto first = eventFirst ? notifyEventAgentStatus : notifyNetworkAgentStatus;
        const auto second = eventFirst ? notifyNetworkAgentStatus : notifyEventAgentStatus;
        second(false);
        first(true);
        EXPECT_TRUE(probeDisabled);
        second(true);
        EXPECT_FALSE(probeDisabled);
        first(false);
        second(false);
        EXPECT_FALSE(probeDisabled);
    }
}

// The probe's stop closes the gate; only an agent that reports a change opens it again.
TEST_F(Gate, OpensAgainOnAChangeOnly) {
    notifyEventAgentStatus(true);
    notifyNetworkAgentStatus(true);
    probeDisabled = true;
    notifyEventAgentStatus(true);
    notifyNetworkAgentStatus(true);
    EXPECT_TRUE(probeDisabled);
    notifyNetworkAgentStatus(false);
    EXPECT_TRUE(probeDisabled);
    notifyNetworkAgentStatus(true);
    EXPECT_FALSE(probeDisabled);
}

// Agents may come in while the probe is being stopped.
TEST_F(Gate, StaysClosedThroughAStopAndAfterIt) {
    beginStopping();
    notifyEventAgentStatus(true);
    notifyNetworkAgentStatus(true);
    EXPECT_TRUE(probeDisabled);
    endStopping();
    EXPECT_TRUE(probeDisabled);
    notifyNetworkAgentStatus(true);
    EXPECT_TRUE(probeDisabled) << "the other agent is gone";
    notifyEventAgentStatus(true);
    EXPECT_FALSE(probeDisabled);
}

TEST_F(Gate, OpensWhenBothReportAtOnce) {
    for (int i = 0; i < 2000; ++i) {
        reset();
        std::thread event([] { notifyEventAgentStatus(true); });
        std::thread network([] { notifyNetworkAgentStatus(true); });
        event.join();
        network.join();
        ASSERT_FALSE(probeDisabled) << "round " << i;
    }
}

TEST(Facts, AreCutAndKeptWhenThereIsNothingNew) {
    char fact[8] = "old";
    copyFact(fact, sizeof(fact), nullptr);
    copyFact(fact, sizeof(fact), "");
    EXPECT_STREQ("old", fact);
    for (const size_t length : {1, 6, 7, 8, 300}) {
        copyFact(fact, sizeof(fact), std::string(length, 'x').c_str());
        EXPECT_EQ(std::string(length < 7 ? length : 7, 'x'), fact);
    }
}

} // namespace
