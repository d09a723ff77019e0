#include "NetworkAgentMgr.h"

#include "ProbeState.h"
#include "Threads.h"
#include "net_test_support.h"

#include <array>
#include <set>

using namespace net_test;

namespace {

class NetworkPoolTest : public NetworkTest {
protected:
    // A manager with agents but without threads.
    void create(const char *poolSize) {
        properties.set("networkagent.pool.size", poolSize);
        mgr = NetworkAgentMgr::getInstance();
        mgr->registerConnectionInitListener(&listener);
        mgr->start();
    }
    std::vector<NetworkAgent *> allAgents() {
        std::set<NetworkAgent *> seen;
        for (int i = 0; i < mgr->poolSize(); ++i) {
            seen.insert(mgr->getNextNetworkAgent());
        }
        std::vector<NetworkAgent *> agents(seen.begin(), seen.end());
        std::sort(agents.begin(), agents.end(),
                  [](const NetworkAgent *a, const NetworkAgent *b) { return a->id() < b->id(); });
        return agents;
    }
};

} // namespace

TEST_F(NetworkPoolTest, OddPoolSizesAndIdsDoNoHarm) {
    const std::pair<const char *, int> sizes[] = {{"0", 0}, {"-3", 0}, {"2000000000", 256}};
    for (const auto &[configured, agents] : sizes) {
        create(configured);
        NetworkClient client;
        EXPECT_EQ(agents, NetworkAgentMgr::agentCount());
        EXPECT_EQ(agents > 0, mgr->getNetworkAgent(&client) != nullptr);
        EXPECT_FALSE(mgr->send(&client, "abc", 3) || mgr->isConnected(&client));
        for (const bool managed : {true, false}) {
            EXPECT_EQ(managed, networkAgentMgr != nullptr);
            for (const int id : {-1, agents, agents + 7}) {
                NetworkAgentMgr::startNetworkAgent(nullptr, id);
                NetworkAgentMgr::stopNetworkAgent(nullptr, id);
            }
            stop();
            NetworkAgentMgr::destroy();
        }
    }
    EXPECT_EQ(3 * 12, log.count("Trying to start Network agent with improper ID: %d [0-%d]"));
}

TEST_F(NetworkPoolTest, AddressIsAskedForAgainOnlyWhenNobodyIsConnected) {
    create("3");
    const std::vector<NetworkAgent *> agents = allAgents();
    const struct {
        bool needed;
        std::array<bool, 3> connected;
        std::array<bool, 3> marked;
        bool neededAfter;
    } rows[] = {
        {true, {false, false, false}, {false, false, false}, true},
        {false, {true, false, false}, {true, false, false}, false},
        {false, {false, true, false}, {true, true, false}, false},
        {false, {false, false, true}, {true, true, true}, false},
        {false, {false, false, false}, {true, true, true}, true},
    };
    for (const auto &row : rows) {
        if (!row.needed) {
            mgr->setPSDetails("somewhere", 1, 2);
        }
        for (size_t i = 0; i < 3; ++i) {
            agents[i]->connected_ = row.connected[i];
            agents[i]->needAlive_ = false;
        }
        mgr->notifyPSConnectStatus(agents[0], false);
        for (size_t i = 0; i < 3; ++i) {
            EXPECT_EQ(row.marked[i], agents[i]->needAlive_) << i;
            agents[i]->connected_ = false;
        }
        PSDetails known;
        EXPECT_EQ(!row.neededAfter, mgr->getPSDetailsFromKernel(nullptr, 9, agents[0], known));
    }
}

TEST_F(NetworkPoolTest, ListenerIsCalledWhenTheLastConnectionIsLost) {
    create("2");
    const std::vector<NetworkAgent *> pair = allAgents();
    for (int round = 1; round <= 2; ++round) {
        for (const int member : {0, 1}) {
            EXPECT_EQ(round - 1, listener.calls);
            pair[static_cast<size_t>(member)]->socketDown_ = true;
            mgr->notifyConnectionListeners(pair[static_cast<size_t>(member)]);
        }
        EXPECT_EQ(round, listener.calls);
        EXPECT_FALSE(pair[0]->socketDown_ || pair[1]->socketDown_);
        mgr->registerConnectionInitListener(nullptr); // changes nothing
    }
    stop();
    NetworkAgentMgr::destroy();

    create("1");
    for (int losses = 3; losses <= 4; ++losses) {
        mgr->notifyConnectionListeners(allAgents()[0]);
        EXPECT_EQ(losses, listener.calls);
    }
    mgr->unregisterConnectionInitListener(nullptr);
    mgr->notifyConnectionListeners(allAgents()[0]);
    EXPECT_EQ(4, listener.calls);
}

TEST_F(NetworkPoolTest, ActsAsOnePoolTowardsTheGovernor) {
    properties.set("networkagent.publish.frequency", "500");
    create("2");
    EXPECT_EQ(500, mgr->getSleepTime());
    EXPECT_TRUE(mgr->setSleepTime(20));
    int32_t total = 0;
    for (NetworkAgent *agent : allAgents()) {
        EXPECT_EQ(20, agent->sleepTime_);
        agent->alive_ = agent->started_ = agent->connected_ = true;
        total += 3 + agent->id();
        EXPECT_TRUE(agent->sendData("abcdef", 3 + agent->id()));
        agent->started_ = false;
    }
    EXPECT_EQ(total, mgr->getTotalDataSize());
    EXPECT_FALSE(mgr->setThreadPriority(nullptr, 5));
    NetworkAgentMgr *closed = mgr;
    stop();
    EXPECT_EQ(0, closed->getTotalDataSize());
    EXPECT_EQ(0, closed->getSleepTime());
    closed->setSleepTime(20);
}

TEST_F(NetworkPoolTest, ALargePoolStopsAsOne) {
    properties.set("networkagent.pool.size", "8");
    start();
    ASSERT_TRUE(eventually([this] { return log.messages(1062) == 8; }));
    EXPECT_TRUE(stop());
}

TEST_F(NetworkPoolTest, EachClientsPacketsStayInOrderOnOneConnection) {
    properties.set("networkagent.pool.size", "3");
    PeerServer server;
    networkAgentReady = false;
    start();
    answerWith(server.port());
    ASSERT_TRUE(eventually([&] { return networkAgentReady.get(); }));
    std::array<NetworkClient, 3> clients;
    for (NetworkClient &client : clients) {
        NetworkAgent *agent = mgr->getNetworkAgent(&client);
        client.networkAgent = nullptr;
        EXPECT_EQ(agent, mgr->getNetworkAgent(&client)) << "the table knows it too";
    }
    onThreads(3, [&](int number) {
        for (int i = 0; i < 100; ++i) {
            sendSurely(clients[static_cast<size_t>(number)],
                       std::string(1, static_cast<char>('A' + number)) + std::to_string(i) + ";");
        }
    });
    for (char name = 'A'; name <= 'C'; ++name) {
        std::string expected;
        for (int i = 0; i < 100; ++i) {
            expected += name + std::to_string(i) + ";";
        }
        EXPECT_TRUE(eventually([&] {
            for (size_t i = 0; i < server.count(); ++i) {
                const std::string stream = afterInitialBlock(server.bytes(i));
                if (stream == expected || stream == ALIVE_PACKET + expected) {
                    return true;
                }
            }
            return false;
        })) << name;
    }
    EXPECT_EQ(3u, server.count());
    EXPECT_EQ(1, log.count("Inside sendInitRecords(): about to send classloading events to PS"));
    stop();
    EXPECT_FALSE(networkAgentReady);
    networkAgentReady = true;
    networkAgentReady = false;
}

// Callers inside, agents that start late, and a pool that opens and closes around them.
TEST_F(NetworkPoolTest, StartAndStopUnderLoad) {
    properties.set("networkagent.pool.size", "2");
    PeerServer server;
    mgr = NetworkAgentMgr::getInstance();
    NetworkAgentMgr *pool = mgr;
    std::atomic<bool> done{false};
    std::thread callers([&done, pool] {
        onThreads(2, [&](int) {
            while (!done) {
                NetworkClient client; // ends before the agents that it was given
                for (int i = 0; i < 20; ++i) {
                    pool->isConnected(&client);
                    pool->send(&client, "0123456789", 10);
                    client.networkAgent = nullptr;
                }
                pool->getTotalDataSize();
                pool->setSleepTime(1);
                std::this_thread::yield();
            }
        });
    });
    for (int cycle = 0; cycle < 1000; ++cycle) { // with no threads to wait for, agents come and go fast
        pool->start();
        std::this_thread::yield();
        pool->stop();
    }
    std::thread latecomer([&done, pool] { // comes in whenever a thread can
        while (!done) {
            pool->startNetworkAgent(nullptr, 1);
            std::this_thread::sleep_for(milliseconds(1));
        }
    });
    answerWith(server.port());
    for (int cycle = 0; cycle < 3; ++cycle) {
        pool->start();
        std::thread agent([pool] { pool->startNetworkAgent(nullptr, 0); });
        const size_t before = server.count();
        EXPECT_TRUE(eventually([&] { return server.count() > before; }));
        pool->stop();
        agent.join();
        EXPECT_EQ(0, pool->getTotalDataSize());
    }
    done = true;
    latecomer.join();
    callers.join();
}

// A thread that is stuck within an agent holds up a stop for some seconds; whatever it touches on its way out
// is still there, and the pool can be opened again meanwhile.
TEST_F(NetworkPoolTest, AStopLeavesAStuckThreadBehind) {
    struct Blocking : NetworkAgentMgrConnInitListener {
        void notifySocketStatus() override {
            stuck = true;
            while (!free) {
                std::this_thread::sleep_for(milliseconds(1));
            }
        }
        std::atomic<bool> stuck{false}, free{false};
    } blocking;
    properties.set("networkagent.socket.timeout", "1");
    PeerServer server;
    start();
    mgr->registerConnectionInitListener(&blocking);
    answerWith(server.port());
    NetworkClient client;
    sendSurely(client, "before");
    ASSERT_TRUE(eventually([&] { return !afterInitialBlock(server.bytes(0)).empty(); }));
    server.resetAll();
    ASSERT_TRUE(eventually([&] {
        mgr->send(&client, "lost", 4);
        return blocking.stuck.load();
    }));
    endAnswering();
    NetworkAgentMgr::destroy();
    EXPECT_EQ(1, log.count("NetworkAgent ID: %d has not ended and is left to itself"));
    ASSERT_EQ(mgr, networkAgentMgr) << "it is asked by who comes back";
    mgr->start();
    runAgent(0);
    ASSERT_TRUE(eventually([&] { return log.messages(1062) == 2; }));
    blocking.free = true;
    agentThreads[0].join();
    agentThreads.erase(agentThreads.begin());
    stop();
    EXPECT_EQ(1, log.count("NetworkAgent ID: %d has not ended and is left to itself")) << "no other";
    NetworkAgentMgr::destroy();
    EXPECT_EQ(nullptr, networkAgentMgr);
}

// The natives of the Java threads may come at any moment, also while the manager goes.
TEST_F(NetworkPoolTest, ManagerGoesUnderTheFeetOfItsCallers) {
    properties.set("networkagent.pool.size", "2");
    std::atomic<bool> done{false};
    std::atomic<bool> late{false};
    std::thread callers([&] {
        onThreads(3, [&](int caller) {
            while (!done) {
                EXPECT_EQ(2, NetworkAgentMgr::agentCount());
                if (caller < 2) {
                    NetworkAgentMgr::stopNetworkAgent(nullptr, caller);
                } else if (late) {
                    NetworkAgentMgr::startNetworkAgent(nullptr, 1);
                }
                std::this_thread::yield();
            }
        });
    });
    for (int cycle = 0; cycle < 202; ++cycle) {
        late = cycle >= 200;
        NetworkAgentMgr::getInstance()->start();
        std::this_thread::yield();
        NetworkAgentMgr::destroy();
    }
    done = true;
    callers.join();
}

TEST(PeriodicTimer, FiresAtFirstAndThenOnceAnInterval) {
    PeriodicTimer timer(1);
    constexpr int64_t LATE = int64_t{1} << 40; // 12 days after the start of the machine
    const struct {
        int64_t now;
        bool fires;
    } steps[] = {{0, true},    {1000, false},      {1001, true},         {2001, false},
                 {LATE, true}, {LATE + 10, false}, {LATE + 1000, false}, {LATE + 1001, true}};
    for (const auto &step : steps) {
        EXPECT_EQ(step.fires, timer.expired(step.now)) << step.now;
    }
    EXPECT_TRUE(PeriodicTimer(UINT32_MAX).expired());
}
