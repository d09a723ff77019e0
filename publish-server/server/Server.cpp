#include "server/Server.h"

#include "server/Capture.h"
#include "server/Session.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include <boost/asio/buffer.hpp>
#include <boost/asio/socket_base.hpp>

namespace ps {
namespace {

using boost::asio::ip::tcp;
using ErrorCode = boost::system::error_code;

constexpr std::size_t kLiveRows = 20;

std::string endpointText(const tcp::endpoint &endpoint) {
    const std::string host = endpoint.address().to_string();
    return (endpoint.address().is_v6() ? "[" + host + "]" : host) + ":" + std::to_string(endpoint.port());
}

std::string peerOf(const tcp::socket &socket) {
    ErrorCode error;
    const tcp::endpoint peer = socket.remote_endpoint(error);
    return error ? "a peer already gone" : endpointText(peer);
}

} // namespace

// Owned by the server's list and by its own pending read.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(Server &server, tcp::socket socket, std::uint64_t number)
        : server_(server), socket_(std::move(socket)),
          session_(number, peerOf(socket_), server.totals_, server.sink_, server.options_.maxRecordBytes),
          capture_(server.options_.captureDir, number) {}

    void read() {
        const StreamDecoder::Space space = session_.prepare();
        socket_.async_read_some(
            boost::asio::buffer(space.data, space.size),
            [self = shared_from_this(), data = space.data](ErrorCode error, std::size_t count) {
                self->received(error, {data, count});
            });
    }

    void finish(const std::string &how) {
        if (std::exchange(finished_, true)) {
            return;
        }
        ErrorCode ignored;
        socket_.close(ignored);
        const std::string text = summaryText(session_.finish(how));
        std::fwrite(text.data(), 1, text.size(), stderr);
        server_.output_.flush();
    }

private:
    void received(ErrorCode error, std::string_view bytes) {
        if (finished_) {
            return;
        }
        capture_.write(bytes);
        if (session_.commit(bytes.size()) && !error) {
            server_.output_.flush();
            read();
            return;
        }
        finish(error == boost::asio::error::eof ? "closed by the collector"
                                                : "connection lost: " + error.message());
        auto &all = server_.connections_;
        all.erase(std::remove(all.begin(), all.end(), shared_from_this()), all.end());
    }

    Server &server_;
    tcp::socket socket_;
    Session session_;
    Capture capture_;
    bool finished_ = false;
};

Server::Server(const Options &options, Totals &totals, Output &output, RecordSink *sink,
               const std::atomic<bool> &stop)
    : options_(options), totals_(totals), output_(output), sink_(sink), stop_(stop), acceptor_(io_),
      timer_(io_) {
    listen();
}

Server::~Server() = default;

// A name may stand for addresses of both families; collectors are mostly told the older one.
tcp::endpoint Server::chooseEndpoint() {
    const auto found = tcp::resolver(io_).resolve(options_.host, std::to_string(options_.port));
    for (const auto &entry : found) {
        if (entry.endpoint().address().is_v4()) {
            return entry.endpoint();
        }
    }
    return found.begin()->endpoint();
}

void Server::listen() {
    const tcp::endpoint endpoint = chooseEndpoint();
    acceptor_.open(endpoint.protocol());
    acceptor_.set_option(boost::asio::socket_base::reuse_address(true));
    acceptor_.bind(endpoint);
    acceptor_.listen();
}

std::string Server::address() const {
    return endpointText(acceptor_.local_endpoint());
}

void Server::run() {
    const Clock::time_point now = Clock::now();
    if (options_.seconds > 0) {
        endAt_ = now +
                 std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options_.seconds));
    }
    if (options_.table && output_.isTerminal()) {
        tableAt_ = now;
    }
    accept();
    tick();
    io_.run();
    for (const auto &connection : connections_) {
        connection->finish("receiver ended");
    }
    connections_.clear();
}

void Server::accept() {
    acceptPending_ = true;
    acceptor_.async_accept([this](ErrorCode error, tcp::socket socket) {
        acceptPending_ = false;
        if (!error) {
            accepted(std::move(socket));
            accept();
        } // else, with no descriptor left perhaps: the next tick tries again
    });
}

void Server::accepted(tcp::socket socket) {
    if (connections_.size() >= options_.maxConnections) {
        if (++totals_.refused % 1024 == 1) {
            std::fprintf(stderr, "refused %s, connection number %llu over the limit of %zu\n",
                         peerOf(socket).c_str(), static_cast<unsigned long long>(totals_.refused),
                         options_.maxConnections);
        }
        return;
    }
    ErrorCode ignored;
    socket.set_option(boost::asio::socket_base::keep_alive(true),
                      ignored); // a vanished peer must free its place
    connections_.push_back(std::make_shared<Connection>(*this, std::move(socket), ++lastConnection_));
    connections_.back()->read();
}

void Server::tick() {
    if (!acceptPending_) {
        accept();
    }
    draining_ = draining_ || mustEnd();
    if (draining_) {
        drain();
    }
    refreshTable();
    bytesAtTick_ = totals_.bytes;
    timer_.expires_after(kTick);
    timer_.async_wait([this](ErrorCode) { tick(); });
}

bool Server::mustEnd() const {
    return stop_.load(std::memory_order_relaxed) || output_.broken() || Clock::now() >= endAt_;
}

void Server::drain() {
    endAt_ = std::min(endAt_, Clock::now());
    quietTicks_ = totals_.bytes == bytesAtTick_ ? quietTicks_ + 1 : 0;
    if (quietTicks_ > kQuietTicks || Clock::now() >= endAt_ + kDrainTime) {
        io_.stop();
    }
}

void Server::refreshTable() {
    const Clock::time_point now = Clock::now();
    if (now < tableAt_) {
        return;
    }
    static const char homeAndClear[] = "\x1b[H\x1b[J";
    output_.write(homeAndClear + totals_.table(kLiveRows));
    output_.flush();
    tableAt_ = now + std::chrono::duration_cast<Clock::duration>(
                         std::chrono::duration<double>(options_.tableSeconds));
}

} // namespace ps
