#include "../support/Threads.h"
#include "ps_bytes.h"
#include "server/Options.h"
#include "server/Server.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <optional>
#include <set>
#include <thread>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace pstest;

namespace {

// On the server's thread every so manieth allocation fails; 0: none.
std::atomic<unsigned> failEvery{0};
thread_local bool mayFail = false;
thread_local unsigned allocations = 0;

} // namespace

[[gnu::noinline]] void *operator new(std::size_t size) {
    const unsigned every = mayFail ? failEvery.load() : 0;
    void *memory = every > 0 && ++allocations % every == 0 ? nullptr : std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}
[[gnu::noinline]] void operator delete(void *memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void *memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

class Client {
public:
    Client() : socket_(::socket(AF_INET, SOCK_STREAM, 0)) {}
    explicit Client(std::uint16_t port) : Client() { connect(port); }
    ~Client() { ::close(socket_); }

    bool connect(std::uint16_t port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return ::connect(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }
    bool send(const std::string &bytes, int flags = 0) {
        return ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL | flags) ==
               static_cast<ssize_t>(bytes.size());
    }
    // The other side takes more, within a second.
    bool isTaken() {
        pollfd ready{socket_, POLLOUT, 0};
        return ::poll(&ready, 1, 1000) == 1;
    }
    // Ends the stream and waits until the server has taken all of it.
    bool readToTheEnd() { return ::shutdown(socket_, SHUT_WR) == 0 && closedByServer(); }
    void resetAtTheEnd() {
        const linger at_once{1, 0};
        ::setsockopt(socket_, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    }
    bool closedByServer(int milliseconds = 60000) {
        const timeval patience{milliseconds / 1000, milliseconds % 1000 * 1000};
        ::setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        char byte;
        return ::recv(socket_, &byte, 1, 0) == 0 || errno == ECONNRESET;
    }

private:
    int socket_;
};

// Standard error as long as this lives.
class Told {
public:
    Told() : before_(::dup(STDERR_FILENO)) {
        EXPECT_EQ(::pipe2(pipe_, O_CLOEXEC), 0);
        ::dup2(pipe_[1], STDERR_FILENO);
    }
    ~Told() {
        ::dup2(before_, STDERR_FILENO);
        for (const int descriptor : {before_, pipe_[0], pipe_[1]}) {
            ::close(descriptor);
        }
    }
    // Waits for `text`; what came up to there is gone.
    bool saw(const std::string &text, int milliseconds = 60000) {
        pollfd ready{pipe_[0], POLLIN, 0};
        for (;;) {
            const std::size_t at = text_.find(text);
            if (at != std::string::npos) {
                text_.erase(0, at + text.size());
                return true;
            }
            char bytes[4096];
            const ssize_t count =
                ::poll(&ready, 1, milliseconds) == 1 ? ::read(pipe_[0], bytes, sizeof bytes) : 0;
            if (count <= 0) {
                return false;
            }
            text_.append(bytes, static_cast<std::size_t>(count));
        }
    }

private:
    int before_;
    int pipe_[2];
    std::string text_;
};

class PsServer : public testing::Test {
protected:
    PsServer() {
        directory_ = std::filesystem::path(testing::TempDir()) / ("ps_server_" + std::to_string(::getpid()));
        options.port = 0;
    }
    ~PsServer() override {
        finish();
        std::filesystem::remove_all(directory_);
    }

    // `failing`: what failEvery is then; with it there is no sink, or all would be lost in its allocations.
    void start(int outputDescriptor, std::optional<unsigned> failing = {}) {
        stop_ = false;
        output_ = std::make_unique<ps::Output>(outputDescriptor, stop_);
        sink_ = failing ? nullptr : ps::makeJsonSink(*output_);
        server = std::make_unique<ps::Server>(options, totals, *output_, sink_.get(), stop_);
        thread_ = std::thread([this, failing] {
            mayFail = failing.has_value();
            failEvery = failing.value_or(0);
            server->run();
            mayFail = false;
        });
    }
    void start() {
        std::filesystem::create_directories(directory_);
        const std::string path = outputPath();
        descriptor_ = ::open(path.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600);
        start(descriptor_);
    }
    // Asks the server to end and waits for it; the totals may be read then.
    void finish() {
        stop_ = true;
        if (thread_.joinable()) {
            thread_.join();
        }
        server.reset();
        output_.reset();
        if (descriptor_ >= 0) {
            ::close(std::exchange(descriptor_, -1));
        }
    }

    double cpuSeconds() {
        clockid_t clock;
        timespec used{};
        ::pthread_getcpuclockid(thread_.native_handle(), &clock);
        ::clock_gettime(clock, &used);
        return static_cast<double>(used.tv_sec) + static_cast<double>(used.tv_nsec) / 1e9;
    }

    std::string outputPath() const { return directory_ / "out.json"; }
    std::vector<nlohmann::json> summaries() const {
        std::vector<nlohmann::json> found;
        std::ifstream file(outputPath());
        for (std::string line; std::getline(file, line);) {
            const auto json = nlohmann::json::parse(line);
            if (json.contains("summary")) {
                found.push_back(json);
            }
        }
        return found;
    }

    std::filesystem::path directory_;
    ps::Options options;
    ps::Totals totals;
    std::unique_ptr<ps::Server> server;

private:
    std::atomic<bool> stop_{false};
    std::unique_ptr<ps::Output> output_;
    std::unique_ptr<ps::RecordSink> sink_;
    std::thread thread_;
    int descriptor_ = -1;
};

std::string pairPacket(std::uint32_t thread) {
    return packet({record(4, thread, 1, 1000, httpPayload("/x")), record(5, thread, 1, 2000)});
}

std::string contentOf(const std::filesystem::path &file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

const std::string kAlive = bytes("00 00000001 7F7F 2C 0000 7F7F");

} // namespace

TEST_F(PsServer, neitherBrokenNorResetConnectionsHarmOthers) {
    constexpr int kClients = 8;
    constexpr int kPackets = 300;
    start();
    const std::uint16_t port = server->port();
    std::thread clients([port] {
        onThreads(kClients, [port](int number) {
            Client client(port);
            ASSERT_TRUE(client.send(kInitBlock));
            for (int n = 0; n < kPackets; ++n) {
                ASSERT_TRUE(client.send(pairPacket(static_cast<std::uint32_t>(number)) + kAlive));
            }
            EXPECT_TRUE(client.readToTheEnd());
        });
    });
    const std::string stream = kInitBlock + packet({record(5, 7, 1, 2000)});
    for (const std::size_t bytes : {std::size_t{0}, std::size_t{10}, kInitBlock.size(), stream.size() - 5}) {
        Client client(port);
        client.resetAtTheEnd();
        client.send(stream.substr(0, bytes));
    }
    Client bad(port);
    bad.send(kInitBlock + pairPacket(99) + packet({bytes("FE FE FE")}));
    EXPECT_TRUE(bad.closedByServer());
    clients.join();
    finish();
    EXPECT_EQ(totals.connections, kClients + 5u);
    EXPECT_EQ(totals.errors, 1u);
    EXPECT_EQ(totals.open, 0u);
    EXPECT_EQ(totals.json()["urls"][0]["ended"], kClients * kPackets + 1);
    int broken = 0, whole = 0;
    for (const auto &summary : summaries()) {
        if (summary["ended"].get<std::string>().find("unknown record type 254") != std::string::npos) {
            ++broken;
            EXPECT_NE(summary["errorBytes"].get<std::string>().find("<FE>"), std::string::npos);
        } else if (summary["records"] == 2 + 3 * kPackets) {
            ++whole;
            EXPECT_EQ(summary["ended"], "closed by the collector");
            EXPECT_EQ(summary["counts"]["PSStatusEvent"], kPackets);
        }
    }
    EXPECT_EQ(broken, 1);
    EXPECT_EQ(whole, kClients);
    EXPECT_EQ(summaries().size(), kClients + 5u);
}

TEST_F(PsServer, placesAreLimitedAndOneAddressDoesNotTakeAll) {
    for (std::size_t ps::Options::*limit : {&ps::Options::maxConnections, &ps::Options::maxPerAddress}) {
        options = ps::Options();
        options.port = 0;
        options.*limit = 2;
        totals = ps::Totals();
        start();
        const Client silent(server->port());
        Client open(server->port());
        ASSERT_TRUE(open.send(kInitBlock));
        EXPECT_TRUE(Client(server->port()).closedByServer());
        ASSERT_TRUE(open.send(kAlive));
        finish();
        EXPECT_EQ(totals.refused, 1u);
        EXPECT_EQ(totals.errors, 0u);
        EXPECT_EQ(totals.records, 3u);
    }
}

TEST_F(PsServer, whoDoesNotOpenItsStreamGoes) {
    options.maxConnections = 2;
    options.initSeconds = 2;
    start();
    Client open(server->port());
    ASSERT_TRUE(open.send(kInitBlock));
    Client half(server->port());
    std::size_t sent = 0; // a byte now and then gains no time
    while (!half.closedByServer(200) && sent < kInitBlock.size()) {
        half.send(kInitBlock.substr(sent++, 1));
    }
    EXPECT_LT(sent, kInitBlock.size());
    ASSERT_TRUE(open.send(pairPacket(1) + kAlive)) << "an open stream may be silent";
    Client next(server->port()); // in the place that became free
    ASSERT_TRUE(next.send(kInitBlock));
    finish();
    EXPECT_EQ(totals.refused, 0u);
    EXPECT_EQ(totals.records, 2u + 3 + 2);
}

TEST_F(PsServer, whatCannotBeWrittenEndsNothingElse) {
    const int full = ::open("/dev/full", O_WRONLY);
    options.captureDir = "/dev/full"; // a file
    start(full);
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(Client(server->port()).send(kInitBlock + pairPacket(1)));
    }
    finish();
    ::close(full);
    EXPECT_EQ(totals.records, 3 * 4u);
    EXPECT_EQ(totals.capturesLost, 3u);
}

TEST_F(PsServer, withoutDescriptorsCollectorsWait) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP()
        << "the check of virtual tables looks at memory through a pipe, and takes its absence for a fault";
#endif
    start();
    Client client;
    Told told;
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = before;
    none.rlim_cur = 3;
    ::setrlimit(RLIMIT_NOFILE, &none);
    const bool connected = client.connect(server->port());
    const bool failed = told.saw("cannot accept connections");
    const double cpu = cpuSeconds();
    const bool again = told.saw("cannot accept", 500);
    const double spent = cpuSeconds() - cpu;
    ::setrlimit(RLIMIT_NOFILE, &before);
    EXPECT_TRUE(failed);
    EXPECT_FALSE(again) << "told once a minute";
    EXPECT_LT(spent, 0.25) << "it waits, it does not spin";
    EXPECT_TRUE(connected && client.send(kInitBlock + kAlive));
    finish();
    EXPECT_EQ(totals.records, 3u);
}

TEST_F(PsServer, memoryThatIsOutEndsAConnectionAtMost) {
    for (const unsigned every : {1u, 2u, 3u, 5u, 7u, 11u, 31u}) {
        start(STDOUT_FILENO, every);
        for (int i = 0; i < 30; ++i) {
            Client client(server->port());
            client.send(kInitBlock + pairPacket(1));
        }
        finish();
        EXPECT_EQ(totals.open, 0u) << every;
    }
    totals = ps::Totals();
    start(STDOUT_FILENO, 0);
    Told told;
    Client steady(server->port()), victim(server->port());
    ASSERT_TRUE(steady.send(kInitBlock + pairPacket(1)) && victim.send(kInitBlock + pairPacket(2)));
    ASSERT_TRUE(Client(server->port()).send("????") && told.saw("stream error")); // all before is done
    failEvery = 1;
    ASSERT_TRUE(victim.send(pairPacket(3)));
    EXPECT_TRUE(told.saw("memory is out"));
    failEvery = 0;
    EXPECT_TRUE(victim.closedByServer());
    EXPECT_TRUE(steady.send(pairPacket(1)));
    finish();
    EXPECT_EQ(totals.json()["urls"][0]["ended"], 3);
}

TEST_F(PsServer, whoHoldsTheMemoryOfAllGoes) {
    options.maxMemoryBytes = 1u << 20;
    start();
    Told told;
    Client steady(server->port()), greedy(server->port());
    ASSERT_TRUE(steady.send(kInitBlock));
    std::vector<std::string> begins;
    for (std::uint32_t thread = 1; thread <= 20000; ++thread) {
        begins.push_back(record(4, thread, 1, 1000, httpPayload("/open")));
    }
    greedy.send(kInitBlock + packet(begins));
    EXPECT_TRUE(greedy.closedByServer());
    EXPECT_TRUE(told.saw("it holds too much of the memory of all"));
    ASSERT_TRUE(steady.send(pairPacket(1)));
    finish();
    EXPECT_EQ(totals.json()["urls"].size(), 2u);
}

TEST_F(PsServer, whoComesAndGoesDoesNotFillTheLog) {
    start();
    Told told;
    for (int i = 0; i < 210; ++i) {
        ASSERT_TRUE(Client(server->port()).send("????")); // no initial block
    }
    EXPECT_TRUE(told.saw("the others are not told"));
    finish();
    EXPECT_FALSE(told.saw("stream error", 0));
    EXPECT_EQ(totals.errors, 210u);
}

TEST(PsOrigin, anAddressIsWhatOneHostCannotChange) {
    const char *const cases[][2] = {{"10.0.0.7", "10.0.0.7"},
                                    {"::ffff:10.0.0.7", "10.0.0.7"},
                                    {"2001:db8:1:2:3:4:5:6", "2001:db8:1:2::/64"},
                                    {"::1", "::/64"}};
    for (const auto &[address, origin] : cases) {
        EXPECT_EQ(ps::originOf(boost::asio::ip::make_address(address)), origin);
    }
}

TEST_F(PsServer, lostOutputIsToldAndLeavesNothingBehind) {
    std::filesystem::create_directories(directory_ / "taken");
    const std::string capture = directory_ / "in.bin", stats = directory_ / "taken", log = directory_ / "log";
    std::ofstream(capture, std::ios::binary) << kInitBlock << pairPacket(1);
    const std::pair<std::string, int> cases[] = {{"--json >/dev/null", 0},
                                                 {"--json >/dev/full", 1},
                                                 {"--print >/dev/full", 1},
                                                 {"--table >/dev/full", 1},
                                                 {"--json >&-", 1},
                                                 {"--stats-file " + stats, 1},
                                                 {"--stats-file " + stats + "/missing/x", 1}};
    for (const auto &[command, expected] : cases) {
        const std::string all = std::string(PUBLISH_SERVER) + " --decode " + capture + " " + command;
        EXPECT_EQ(WEXITSTATUS(std::system((all + " 2>" + log).c_str())), expected) << command;
        EXPECT_EQ(contentOf(log).find("cannot write") != std::string::npos, expected == 1) << command;
    }
    EXPECT_FALSE(std::filesystem::exists(stats + ".tmp"));
    EXPECT_TRUE(std::filesystem::is_empty(stats));
}

TEST_F(PsServer, whatWasSentBeforeTheEndIsCounted) {
    constexpr int kPackets = 20000;
    std::string stream = kInitBlock;
    for (int i = 0; i < kPackets; ++i) {
        stream += kAlive;
    }
    start();
    ASSERT_TRUE(Client(server->port()).send(stream));
    ASSERT_TRUE(Client(server->port()).send(kInitBlock + kAlive.substr(0, 9)));
    finish();
    EXPECT_EQ(totals.packets, kPackets + 1u);
    EXPECT_EQ(totals.records, kPackets + 4u);
    EXPECT_NE(contentOf(outputPath()).find("closed by the collector, in the middle of a packet"),
              std::string::npos);
}

TEST_F(PsServer, capturesHoldTheRawBytesAndAreNeverOverwritten) {
    options.captureDir = directory_ / "raw" / "deep";
    const std::string sent[] = {kInitBlock + pairPacket(1), kInitBlock + "not a packet"};
    for (const std::string &stream : sent) { // the second server numbers its connections from 1 again
        start();
        ASSERT_TRUE(Client(server->port()).send(stream));
        finish();
    }
    std::multiset<std::string> captured;
    for (const auto &file : std::filesystem::directory_iterator(options.captureDir)) {
        captured.insert(contentOf(file.path()));
    }
    EXPECT_EQ(captured, (std::multiset<std::string>{sent[0], sent[1]}));
}

TEST_F(PsServer, aReaderThatDoesNotReadPausesTheCollectorsButNotTheEnd) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    start(ends[1]);
    Client client(server->port());
    ASSERT_TRUE(client.send(kInitBlock));
    std::string alive;
    for (int i = 0; i < 5000; ++i) {
        alive += kAlive;
    }
    int taken = 0;
    while (taken < 2000 && client.isTaken()) { // 120 MB
        taken += client.send(alive, MSG_DONTWAIT) ? 1 : 0;
    }
    EXPECT_LT(taken, 2000) << "the server goes on reading into its own memory";
    finish();
    ::close(ends[0]);
    ::close(ends[1]);
}

TEST(PsOptions, commandLines) {
    const struct {
        std::vector<const char *> arguments;
        int status; // of a program that ends at once; -1: it runs
        const char *host = "";
        int port = 0;
        double tableSeconds = 0; // 0: no table
    } cases[] = {
        {{}, -1, "127.0.0.1", 16016},
        {{"--listen", "[::1]:5"}, -1, "::1", 5},
        {{"--listen", ":5000", "--table", "--seconds", "3"}, -1, "127.0.0.1", 5000, 1},
        {{"--listen", "5000", "--table", "2.5"}, -1, "127.0.0.1", 5000, 2.5},
        {{"--listen", "::1"}, 2},
        {{"--listen", "host:"}, 2},
        {{"--listen", "host:65536"}, 2},
        {{"--listen", "host:-1"}, 2},
        {{"--print", "--json"}, 2},
        {{"--table", "0"}, 2},
        {{"stray"}, 2},
        {{"--help"}, 0},
    };
    for (const auto &test : cases) {
        std::vector<const char *> argv{"publish-server"};
        argv.insert(argv.end(), test.arguments.begin(), test.arguments.end());
        int status = -1;
        const auto options = ps::parseCommandLine(static_cast<int>(argv.size()), argv.data(), status);
        EXPECT_EQ(status, test.status) << argv.back();
        ASSERT_EQ(options.has_value(), test.status == -1) << argv.back();
        if (options) {
            EXPECT_EQ(options->host, test.host);
            EXPECT_EQ(options->port, test.port);
            EXPECT_EQ(options->table ? options->tableSeconds : 0, test.tableSeconds);
        }
    }
}
