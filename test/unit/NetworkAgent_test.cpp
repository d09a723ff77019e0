#include "NetworkAgent.h"

#include "net_test_support.h"

#include <fstream>

using namespace net_test;

namespace {

// A packet that tells its number and does not look like any other.
std::string packet(int number, size_t size = 64) {
    std::string bytes = std::to_string(number) + ";";
    while (bytes.size() < size) {
        bytes += static_cast<char>(bytes.size() * 31 + static_cast<size_t>(number));
    }
    return bytes;
}

// An agent without a thread, which believes that it is connected.
struct LoneAgent {
    LoneAgent() : agent(0) { agent.alive_ = agent.started_ = agent.connected_ = true; }
    ~LoneAgent() { agent.flushDataQueue(); }
    bool queue(const char *data, int size) { return agent.sendData(data, size); }
    NetworkAgent agent;
};

} // namespace

// ---------------------------------------------------------------- the queue

TEST_F(NetworkTest, RefusesUntilAllThreeFlagsStandAndAtTheLimit) {
    LoneAgent lone;
    NetworkAgent &agent = lone.agent;
    int refusals = 0;
    for (Relaxed<bool> *flag : {&agent.alive_, &agent.started_, &agent.connected_}) {
        *flag = false;
        EXPECT_FALSE(lone.queue("abc", 3));
        EXPECT_EQ(++refusals, log.messages(1056));
        *flag = true;
    }
    EXPECT_TRUE(lone.queue(nullptr, 3));
    EXPECT_TRUE(lone.queue("abc", -1));
    EXPECT_EQ(0, agent.queueCount());

    for (int i = 1; i <= 10; ++i) {
        EXPECT_TRUE(lone.queue("abc", 3));
        EXPECT_EQ(3 * i, agent.bytesQueued());
    }
    EXPECT_FALSE(lone.queue("abc", 3));
    EXPECT_EQ(1, log.messages(1057));
    EXPECT_EQ(1, log.count("NA data queue is full, Queue size: %d %ld BufferLimit: %d %ld "));
    EXPECT_EQ(10, agent.queueCount());
    EXPECT_EQ(30, agent.bytesQueued());

    agent.flushDataQueue();
    EXPECT_EQ(0, agent.queueCount());
    EXPECT_EQ(0, agent.bytesQueued());
}

TEST_F(NetworkTest, PauseFollowsTheFillLevel) {
    properties.set("networkagent.publish.frequency", "500");
    LoneAgent lone;
    for (const int64_t pause : {1000, 1000, 500, 500, 500, 250, 250, 0, 0, 0, 0}) {
        EXPECT_EQ(pause, lone.agent.ratePause()) << lone.agent.queueCount() << " buffers wait";
        lone.queue("x", 1);
    }
    properties.set("networkagent.buffer.limit", "0");
    EXPECT_EQ(0, LoneAgent().agent.ratePause());
    properties.set("networkagent.buffer.limit", "10");
    properties.set("networkagent.publish.frequency", "-7");
    EXPECT_LT(LoneAgent().agent.ratePause(), 0) << "no wait";
}

// ---------------------------------------------------------------- the stream

TEST_F(NetworkTest, TheStreamBeginsWithTheInitialBlockAndOneSignOfLife) {
    PeerServer server;
    start();
    answerWith(server.port());
    std::string expected = ALIVE_PACKET;
    ASSERT_TRUE(eventually([&] { return afterInitialBlock(server.bytes(0)) == expected; }));
    EXPECT_EQ(0, mgr->getTotalDataSize()) << "neither is in the account";
    NetworkClient client;
    for (int i = 0; i < 10; ++i) { // a pass each
        sendSurely(client, packet(i));
        expected += packet(i);
        ASSERT_TRUE(eventually([&] { return afterInitialBlock(server.bytes(0)) == expected; })) << i;
    }
    for (const int number : {1060, 1062, 1063, 1066}) {
        EXPECT_EQ(1, log.messages(number)) << number;
    }
    EXPECT_TRUE(stop());
    EXPECT_EQ(1, log.messages(1067));
    EXPECT_EQ(1u, server.count());
}

TEST_F(NetworkTest, PacketsArriveWholeAndInOrder) {
    for (const char *batch : {"1", "4"}) {
        properties.set("na.popbuffer.size", batch);
        properties.set("na.reset.counter", "1000");
        PeerServer server;
        start();
        answerWith(server.port(), 4096); // far less than a packet: writes are partial
        NetworkClient client;
        std::string expected = ALIVE_PACKET;
        ASSERT_TRUE(eventually([&] { return afterInitialBlock(server.bytes(0)) == ALIVE_PACKET; }));
        for (int i = 0; i < 60; ++i) {
            const std::string next = packet(i, static_cast<size_t>(i * i * i) % 100000);
            sendSurely(client, next);
            expected += next;
        }
        ASSERT_TRUE(eventually([&] { return afterInitialBlock(server.bytes(0)).size() >= expected.size(); }));
        EXPECT_TRUE(expected == afterInitialBlock(server.bytes(0))) << "batches of " << batch;
        EXPECT_TRUE(eventually([&] { return mgr->getTotalDataSize() == 0; })) << mgr->getTotalDataSize();
        stop();
        NetworkAgentMgr::destroy();
    }
}

// The third of ten ends the rest; whoever was refused is told as soon as one is gone.
TEST_F(NetworkTest, AQueueBeyondItsQuarterEndsTheRest) {
    properties.set("internal.probe.queue.wakeup", "true");
    properties.set("networkagent.publish.frequency", "60000");
    PeerServer server;
    start();
    answerWith(server.port());
    NetworkClient client;
    std::string expected;
    ASSERT_TRUE(eventually([&] { return listener.rooms == 1; })) << "connected";
    for (int i = 0; i < 5; ++i) {
        sendSurely(client, packet(i));
        expected += i < 3 ? packet(i) : "";
    }
    EXPECT_TRUE(eventually([&] { return afterInitialBlock(server.bytes(0)) == expected; }));
    NetworkAgent *agent = mgr->getNetworkAgent(&client);
    while (agent->sendData("x", 1)) {
    }
    EXPECT_TRUE(eventually([&] { return listener.rooms > 1 && agent->queueCount() == 2; }));
}

// ---------------------------------------------------------------- lost connections

TEST_F(NetworkTest, DataQueuedForALostConnectionIsDropped) {
    properties.set("na.popbuffer.size", "5");
    PeerServer server(true);
    const std::string big = packet(1, 1000000);
    start();
    answerWith(server.port(), 4096);
    NetworkClient client;
    ASSERT_TRUE(eventually([&] { return mgr->isConnected(&client); }));
    // A batch is under way, whose first buffer fills the socket, and the queue is full.
    int accepted = 0;
    ASSERT_TRUE(eventually([&] {
        accepted += mgr->send(&client, big.data(), static_cast<int>(big.size())) ? 1 : 0;
        return accepted > 10 && mgr->getTotalDataSize() >= 10 * 1000000;
    }));
    endAnswering();
    server.resetAll();
    EXPECT_TRUE(eventually([&] { return mgr->getTotalDataSize() == 0; })) << mgr->getTotalDataSize();
    EXPECT_EQ(0, mgr->getNetworkAgent(&client)->queueCount());
    EXPECT_FALSE(mgr->isConnected(&client));
    EXPECT_EQ(1, log.messages(1061)) << "the rest of the batch is not tried";
}

TEST_F(NetworkTest, ResetByTimeOpensANewStream) {
    const struct {
        const char *milliseconds;
        uint32_t seconds; // 0: never
    } rows[] = {{"1000", 300}, {"600000", 600}, {"0", 0}, {"-1", 0}};
    for (const auto &row : rows) {
        properties.set("networkagent.socket.resettime", row.milliseconds);
        PeerServer server;
        const int callsBefore = listener.calls;
        start();
        answerWith(server.port());
        ASSERT_TRUE(eventually([&] { return afterInitialBlock(server.bytes(0)) == ALIVE_PACKET; }));
        const int64_t now = monotonicMicros() / 1000000;
        NetworkClient client;
        NetworkAgent *agent = mgr->getNetworkAgent(&client);
        mgr->stopNetworkAgent(nullptr, 0); // its steps are this thread's now
        agent->resetConnectionOnExpiry(now - 30);
        agent->resetConnectionOnExpiry(now + (row.seconds != 0 ? row.seconds - 20 : 1000000));
        EXPECT_FALSE(agent->socketDown_) << row.milliseconds;
        EXPECT_TRUE(agent->connected_);
        if (row.seconds != 0) {
            agent->resetConnectionOnExpiry(now + row.seconds + 20);
            EXPECT_TRUE(agent->socketDown_);
            EXPECT_FALSE(agent->connected_);
            agent->resetConnectionOnExpiry(now + row.seconds + 40);
            EXPECT_EQ(callsBefore + 1, listener.calls) << "once";
            runAgent(0);
            ASSERT_TRUE(eventually([&] { return afterInitialBlock(server.bytes(1)) == ALIVE_PACKET; }));
        }
        stop();
        NetworkAgentMgr::destroy();
    }
}

// ---------------------------------------------------------------- servers that are not there

TEST_F(NetworkTest, SaysSixTimesThatNobodyKnowsTheServer) {
    start();
    ASSERT_TRUE(eventually([&] { return log.count("Reconnect wait %lu seconds") > 10; }))
        << "it goes on asking";
    EXPECT_EQ(1, log.messages(1065));
    EXPECT_EQ(5, log.count("Could not obtain PS proxy details from Kernel."));
    EXPECT_TRUE(stop());
}

// ---------------------------------------------------------------- stopping

TEST_F(NetworkTest, StopCutsThePauseShort) {
    properties.set("networkagent.ps.reconnect.frequency", "120000");
    start();
    ASSERT_TRUE(eventually([&] { return log.count("Reconnect wait %lu seconds") == 1; }));
    EXPECT_TRUE(stop());

    NetworkAgentMgr::destroy();
    properties.set("networkagent.ps.reconnect.frequency", "0");
    properties.set("networkagent.publish.frequency", "60000");
    PeerServer server;
    start();
    answerWith(server.port());
    ASSERT_TRUE(eventually([&] { return initialBlock(server.bytes(0)) != 0; }));
    EXPECT_TRUE(stop());
}

// Connections to that port which nobody has answered yet.
int unanswered(uint16_t port) {
    char wanted[32];
    snprintf(wanted, sizeof(wanted), "0100007F:%04X 02", port);
    std::ifstream table("/proc/net/tcp");
    int count = 0;
    for (std::string line; std::getline(table, line);) {
        count += line.find(wanted) != std::string::npos ? 1 : 0;
    }
    return count;
}

TEST_F(NetworkTest, StopEndsAConnectThatNobodyAnswers) {
    uint16_t port = 0;
    const int full = boundSocket(&port);
    listen(full, 0);
    std::vector<int> fillers; // once the backlog is full, further attempts hear nothing
    for (int i = 0; i < 3; ++i) {
        fillers.push_back(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        connect(fillers.back(), reinterpret_cast<sockaddr *>(&address), sizeof(address));
    }
    const int before = unanswered(port);
    start();
    answerWith(port);
    ASSERT_TRUE(eventually([&] { return unanswered(port) > before; })) << "it was to hang in the connect";
    EXPECT_TRUE(stop());
    EXPECT_EQ(0, log.messages(1059) + log.messages(1064)) << "a stop is no error";
    fillers.push_back(full);
    for (const int fd : fillers) {
        close(fd);
    }
}

TEST_F(NetworkTest, StalledServerHoldsUpNeitherSendersNorTheStop) {
    PeerServer server(true);
    start();
    answerWith(server.port(), 4096);
    NetworkClient client;
    ASSERT_TRUE(eventually([&] { return mgr->isConnected(&client); }));
    const std::string big = packet(1, 1000000);
    const auto begin = Clock::now();
    while (mgr->send(&client, big.data(), static_cast<int>(big.size()))) {
    }
    EXPECT_LT(millisSince(begin), 30000);
    EXPECT_LE(mgr->getTotalDataSize(), 11 * 1000000) << "ten queued and one on its way";
    EXPECT_TRUE(stop());
    EXPECT_EQ(0, log.messages(1061)) << "a stop is no error";
    EXPECT_EQ(0, log.count("Write failed, looks like socket is down, retrying to connect to PS"));
    EXPECT_EQ(0, listener.calls);
}

TEST_F(NetworkTest, SocketTimeoutTurnsAStalledServerIntoALostOne) {
    properties.set("networkagent.socket.timeout", "1");
    properties.set("networkagent.socket.nagleoff", "True");
    PeerServer server(true);
    start();
    answerWith(server.port(), 4096);
    NetworkClient client;
    const std::string big = packet(1, 1000000);
    const auto begin = Clock::now();
    ASSERT_TRUE(eventually([&] {
        mgr->send(&client, big.data(), static_cast<int>(big.size()));
        return listener.calls > 0;
    }));
    EXPECT_GT(millisSince(begin), 900);
    EXPECT_LE(1, log.count("Successful in setting PS socket Nagle Algorithm to Off"));
    EXPECT_TRUE(stop());
}

TEST(HostLookup, NumbersAreAnsweredAtOnceAndNamesOnAThread) {
    const struct {
        const char *host;
        bool atOnce, found;
    } rows[] = {
        {"127.0.0.1", true, true}, {"::1", true, true}, {"localhost", false, true}, {"a..b", false, false}};
    HostLookup lookup;
    for (const auto &row : rows) {
        lookup.ask(row.host, 4711);
        EXPECT_TRUE(!row.atOnce || lookup.answered()) << row.host;
        ASSERT_TRUE(eventually([&] { return lookup.answered(); })) << row.host;
        const AddressList list = lookup.take();
        EXPECT_EQ(row.found, list != nullptr) << row.host;
        EXPECT_EQ(row.found, lookup.result() == 0) << row.host;
    }
    EXPECT_EQ(nullptr, lookup.take()) << "an answer is given once";
    for (int i = 0; i < 50; ++i) { // nobody waits for these
        HostLookup().ask("localhost", i);
    }
}

TEST_F(NetworkTest, AttemptsKeepNoDescriptorAndABindAddressEndsThem) {
    uint16_t open = 0, closed = 0;
    const int server = boundSocket(&open);
    const int silent = boundSocket(&closed);
    listen(server, 64);
    const struct {
        uint16_t port;
        const char *use;
        const char *address;
        const char *line;
        bool connects;
    } rows[] = {
        {open, "false", "127.0.0.1", "Successfully connected to PS Host: %s Port: %d Buffer Size: %d", true},
        {closed, "false", "127.0.0.1", "socket connect() failure [%s:%d] Errno: %d", false},
        {open, "true", "127.0.0.1", "Socket bind successful [%s:%d]", false},
        {open, "true", "192.0.2.1", "Socket bind() failure [%s:%d] Error: %s ErrorNO: %d", false},
        {open, "true", "256.256.256.256", "Error Msg: %s at %s line %d", false},
    };
    naTracer = nullptr; // all of this is told whatever the trace level
    for (const auto &row : rows) {
        properties.set("networkagent.useclient.bindaddress", row.use);
        properties.set("am.socket.bindip", row.address);
        LoneAgent lone;
        log.clear();
        const int before = openDescriptors();
        for (int attempt = 1; attempt <= 20; ++attempt) {
            EXPECT_EQ(row.connects, lone.agent.connect2ps(LOOPBACK, row.port, 4096)) << row.line;
            EXPECT_LE(attempt, log.count(row.line)) << row.line;
            EXPECT_TRUE(lone.agent.disconnect2ps());
        }
        EXPECT_EQ(before, openDescriptors()) << row.line;
        EXPECT_EQ(row.port == closed ? 20 : 0, log.messages(1059)) << row.line;
    }
    close(silent);
    close(server);
}
