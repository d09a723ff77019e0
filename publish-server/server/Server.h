// Accepts collectors on one address and feeds each connection's bytes to a Session. Everything runs on the
// thread that calls run(). Bounded: maxConnections connections, maxPerAddress of them from one address, each
// with at most one record's buffer, all with maxMemoryBytes; one that waits between records costs some
// kilobytes, and before its initial block only for initSeconds. So is what is told of one address a minute. A
// broken stream, or memory that is out, closes its own connection only.
#pragma once

#include "server/Options.h"
#include "server/Output.h"
#include "server/Render.h"
#include "server/Totals.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/address.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>

namespace ps {

class Connection;

// What the limit of an address counts by: of the newer family the network, since a host may take any address
// in it.
std::string originOf(const boost::asio::ip::address &address);

class Server {
public:
    // Listens when constructed; throws boost::system::system_error if it cannot. `sink` may be null. All
    // arguments must outlive the server; setting `stop` (from any thread or signal handler) ends run().
    Server(const Options &options, Totals &totals, Output &output, RecordSink *sink,
           const std::atomic<bool> &stop);
    ~Server();

    // Until `stop` or options.seconds. Before it returns it still takes what collectors have
    // already sent: it goes on until kQuietTicks ticks brought nothing, but for at most kDrainTime.
    void run();

    std::string address() const; // HOST:PORT as bound
    std::uint16_t port() const { return acceptor_.local_endpoint().port(); }

private:
    friend class Connection;
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds kTick{100};
    static constexpr std::chrono::seconds kDrainTime{2};
    static constexpr int kQuietTicks = 2;

    boost::asio::ip::tcp::endpoint chooseEndpoint();
    void listen();
    void accept();
    void accepted(boost::asio::ip::tcp::socket socket);
    void open(boost::asio::ip::tcp::socket socket, const std::string &address);
    void acceptFailed(const boost::system::error_code &error);
    void refuse(const std::string &address, const char *why, std::size_t limit);
    void holds(std::size_t now, std::size_t before) noexcept { heldBytes_ += now - before; }
    bool overShare(std::size_t held) const;
    bool tellsEnd(const std::string &address) noexcept;
    void closed(const Connection &connection) noexcept;
    void lookAfterConnections();
    void tick();
    void drain();
    void refreshTable();
    bool mustEnd() const;

    const Options &options_;
    Totals &totals_;
    Output &output_;
    RecordSink *sink_;
    const std::atomic<bool> &stop_;
    boost::asio::io_context io_;
    boost::asio::ip::tcp::acceptor acceptor_;
    boost::asio::steady_timer timer_;
    std::vector<std::shared_ptr<Connection>> connections_;
    std::vector<char> spare_;   // the buffer of whichever connection is read
    std::size_t heldBytes_ = 0; // by all connections
    // By address; one without connections is forgotten a minute after something of it was told.
    struct Origin {
        std::size_t connections = 0;
        std::uint64_t untold = 0; // refusals since the last line
        Clock::time_point toldAt{};
        std::size_t ends = 0; // since endsSince
        Clock::time_point endsSince{};
    };
    static constexpr std::chrono::seconds kTellAgain{60};
    static constexpr std::size_t kEndsTold = 200; // of one address in kTellAgain
    static constexpr std::size_t kMaxOrigins = 65536;
    std::unordered_map<std::string, Origin> origins_;
    std::uint64_t lastConnection_ = 0;
    bool acceptPending_ = false;
    Clock::time_point acceptToldAt_{};
    bool tickPending_ = false;
    bool draining_ = false;
    int quietTicks_ = 0;
    std::uint64_t bytesAtTick_ = 0;
    Clock::time_point endAt_ = Clock::time_point::max();
    Clock::time_point tableAt_ = Clock::time_point::max();
};

} // namespace ps
