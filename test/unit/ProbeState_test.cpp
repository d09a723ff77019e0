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

// Only the second agent's report of a change opens it, and no agent closes it.
TEST_F(Gate, OpensWithTheSecondAgentOnly) {
    enum Who { EVENT, NETWORK, STOP };
    const struct {
        Who who;
        bool ready, disabled;
    } steps[] = {{NETWORK, false, true}, {EVENT, true, true},     {NETWORK, true, false},
                 {EVENT, false, false},  {STOP, true, true},      {NETWORK, true, true},
                 {EVENT, true, false},   {NETWORK, false, false}, {STOP, true, true},
                 {EVENT, true, true},    {NETWORK, true, false}};
    for (const auto &step : steps) {
        if (step.who == STOP) {
            probeDisabled = true;
        } else {
            step.who == EVENT ? notifyEventAgentStatus(step.ready) : notifyNetworkAgentStatus(step.ready);
        }
        EXPECT_EQ(step.disabled, probeDisabled) << &step - steps;
    }
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
