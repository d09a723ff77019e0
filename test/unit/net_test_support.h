// What the network tests share: a server on loopback that keeps what it reads, and a pool of agents on
// threads of their own.
#pragma once

#include "FakeVm.h"
#include "NetworkAgent.h"
#include "NetworkAgentMgr.h"
#include "PropertyMgr.h"
#include "RecordedLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace net_test {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr char LOOPBACK[] = "127.0.0.1";

inline int64_t millisSince(Clock::time_point start) {
    return std::chrono::duration_cast<milliseconds>(Clock::now() - start).count();
}

// So long that only a fault gets there, however busy the machine is.
inline bool eventually(const std::function<bool()> &condition, int64_t ms = 60000) {
    const auto start = Clock::now();
    while (!condition()) {
        if (millisSince(start) > ms) {
            return false;
        }
        std::this_thread::sleep_for(milliseconds(2));
    }
    return true;
}

inline int openDescriptors() {
    int open = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        open += fcntl(fd, F_GETFD) != -1 ? 1 : 0;
    }
    return open;
}

// A bound loopback socket; it refuses connections until somebody listens on it.
inline int boundSocket(uint16_t *port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0) {
        ADD_FAILURE() << "no loopback socket";
    }
    *port = ntohs(address.sin_port);
    return fd;
}

// Accepts any number of connections and keeps their bytes, or, when stalled, accepts and reads nothing.
class PeerServer {
public:
    explicit PeerServer(bool stall = false) : stalled(stall), listener(boundSocket(&listenPort)) {
        const int room = 4096; // inherited by what it accepts: a stalled server is full soon
        if (stall) {
            setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &room, sizeof(room));
        }
        listen(listener, 16);
        worker = std::thread([this] { serve(); });
    }
    ~PeerServer() {
        done = true;
        worker.join();
        closeAll();
        close(listener);
    }

    int port() const { return listenPort; }
    size_t count() const {
        const std::lock_guard<std::mutex> guard(mutex);
        return connections.size();
    }
    // What connection number `index` has sent so far.
    std::string bytes(size_t index) const {
        const std::lock_guard<std::mutex> guard(mutex);
        return index < connections.size() ? connections[index].received : std::string();
    }
    // A stalled server goes on.
    void resume() { stalled = false; }
    // End every open connection: the hard way, or in order.
    void resetAll() { endAll(true); }
    void closeAll() { endAll(false); }

private:
    struct Connection {
        int fd;
        std::string received;
    };

    void serve() {
        while (!done) {
            pollfd waiting{listener, POLLIN, 0};
            if (poll(&waiting, 1, 2) > 0) {
                const int fd = accept4(listener, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
                const std::lock_guard<std::mutex> guard(mutex);
                connections.push_back({fd, {}});
            }
            if (!stalled) {
                readAll();
            }
        }
    }

    void readAll() {
        const std::lock_guard<std::mutex> guard(mutex);
        for (Connection &connection : connections) {
            char chunk[65536];
            ssize_t got = 0;
            while (connection.fd >= 0 && (got = recv(connection.fd, chunk, sizeof(chunk), 0)) > 0) {
                connection.received.append(chunk, static_cast<size_t>(got));
            }
            if (connection.fd >= 0 && got == 0) { // as a receiver does when its collector has ended
                close(std::exchange(connection.fd, -1));
            }
        }
    }

    void endAll(bool hard) {
        const std::lock_guard<std::mutex> guard(mutex);
        for (Connection &connection : connections) {
            if (connection.fd >= 0) {
                const linger reset{hard, 0};
                setsockopt(connection.fd, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
                close(std::exchange(connection.fd, -1));
            }
        }
    }

    std::atomic<bool> stalled;
    uint16_t listenPort = 0;
    int listener;
    std::atomic<bool> done{false};
    mutable std::mutex mutex;
    std::vector<Connection> connections;
    std::thread worker;
};

class Properties {
public:
    Properties() { new PropertyMgr; }
    ~Properties() { PropertyMgr::destroy(); }
    void set(const char *key, const std::string &value) {
        propertyMgr.get()->putInternalProp(key, value.c_str());
    }
};

struct CountingListener : NetworkAgentMgrConnInitListener {
    void notifySocketStatus() override { ++calls; }
    void notifyRoom() override { ++rooms; }
    std::atomic<int> calls{0};
    std::atomic<int> rooms{0};
};

// A pool whose agents run until `stop`. The lookup has no Java here: `answerWith` gives the answer whenever
// the manager is without one.
class NetworkTest : public ::testing::Test {
protected:
    NetworkTest() {
        properties.set("networkagent.publish.frequency", "2");
        properties.set("networkagent.ps.reconnect.frequency", "0");
    }
    ~NetworkTest() override {
        stop();
        NetworkAgentMgr::destroy();
    }

    void start() {
        mgr = NetworkAgentMgr::getInstance();
        mgr->registerConnectionInitListener(&listener);
        mgr->start();
        for (int id = 0; id < mgr->poolSize(); ++id) {
            runAgent(id);
        }
    }
    void runAgent(int id) {
        agentThreads.emplace_back([this, id] { mgr->startNetworkAgent(nullptr, id); });
    }
    // False if a thread has not noticed in time.
    bool stop() {
        if (mgr == nullptr) {
            return true;
        }
        mgr->stop();
        for (std::thread &thread : agentThreads) {
            thread.join();
        }
        agentThreads.clear();
        endAnswering();
        mgr = nullptr;
        return log.count("NetworkAgent ID: %d has not ended and is left to itself") == 0;
    }

    void answerWith(int port, int sendBuffer = 65536, const char *host = LOOPBACK) {
        endAnswering();
        answering = true;
        oracle = std::thread([this, port, sendBuffer, host] {
            while (answering) {
                PSDetails known;
                if (!mgr->getPSDetailsFromKernel(nullptr, 9, nullptr, known)) {
                    mgr->setPSDetails(host, port, sendBuffer);
                }
                std::this_thread::sleep_for(milliseconds(1));
            }
        });
    }
    void endAnswering() {
        answering = false;
        if (oracle.joinable()) {
            oracle.join();
        }
    }

    // Sends once the pool takes it; fails the test if it never does.
    void sendSurely(NetworkClient &client, const std::string &packet) {
        EXPECT_TRUE(
            eventually([&] { return mgr->send(&client, packet.data(), static_cast<int>(packet.size())); }));
    }

    FakeVm vm;
    RecordedLog log;
    Properties properties;
    CountingListener listener;
    NetworkAgentMgr *mgr = nullptr;
    std::vector<std::thread> agentThreads;
    std::atomic<bool> answering{false};
    std::thread oracle;
};

const std::string ALIVE_PACKET("\0\0\0\0\x01\x7F\x7F\x2C\0\0\x7F\x7F", 12);

// The length of the initial block at the head of a stream; 0 while it is not whole, or if it is none.
inline size_t initialBlock(const std::string &stream) {
    const auto byteAt = [&](size_t at) { return static_cast<unsigned char>(stream[at]); };
    size_t at = 17 + 5; // the init record and the fixed head of the second one
    if (stream.compare(0, 5, std::string("\0\0\x07\xD0\x64", 5)) != 0) {
        return 0;
    }
    for (int texts = 0; texts < 4; ++texts) {
        if (stream.size() < at + 2) {
            return 0;
        }
        at += 2 + byteAt(at) * 256u + byteAt(at + 1);
    }
    at += 4 + 2; // port and end of record
    return stream.size() >= at && stream.compare(at - 2, 2, "\x7F\x7F") == 0 ? at : 0;
}

// What follows the initial block; empty while that is not whole.
inline std::string afterInitialBlock(const std::string &stream) {
    const size_t length = initialBlock(stream);
    return length != 0 ? stream.substr(length) : std::string();
}

} // namespace net_test
