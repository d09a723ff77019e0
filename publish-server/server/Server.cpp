#include "server/Server.h"

#include "server/Capture.h"
#include "server/Session.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <thread>
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

std::string addressOf(const tcp::socket &socket) {
    ErrorCode error;
    const tcp::endpoint peer = socket.remote_endpoint(error);
    return error ? std::string() : originOf(peer.address());
}

} // namespace

std::string originOf(const boost::asio::ip::address &address) {
    if (address.is_v4()) {
        return address.to_string();
    }
    auto v6 = address.to_v6();
    if (v6.is_v4_mapped()) {
        return boost::asio::ip::make_address_v4(boost::asio::ip::v4_mapped, v6).to_string();
    }
    auto bytes = v6.to_bytes();
    std::fill(bytes.begin() + 8, bytes.end(), 0);
    return boost::asio::ip::address_v6(bytes).to_string() + "/64";
}

// Owned by the server's list and by its own pending read.
class Connection : public std::enable_shared_from_this<Connection> {
public:
    Connection(Server &server, tcp::socket socket, std::string address, std::uint64_t number)
        : server_(server), socket_(std::move(socket)), address_(std::move(address)),
          session_(number, peerOf(socket_), server.totals_, server.sink_, server.options_.maxRecordBytes),
          capture_(server.options_.captureDir, number) {}

    // Waits without a buffer: one that is silent needs none.
    void read() {
        socket_.async_wait(tcp::socket::wait_read, [self = shared_from_this()](ErrorCode error) {
            try {
                self->readable(error);
            } catch (const std::bad_alloc &) {
                self->end("memory is out");
            }
        });
    }

    const std::string &address() const { return address_; }
    std::size_t heldBytes() const { return held_; }
    // Bytes that wait to be read may be its initial block, late because of this server.
    bool inTime(Server::Clock::time_point since) const {
        ErrorCode ignored;
        return session_.isOpen() || since_ > since || socket_.available(ignored) > 0;
    }

    void end(const char *how) noexcept {
        if (!finished_) {
            finish(how, server_.tellsEnd(address_));
            server_.closed(*this);
        }
    }

    // Once; where memory is out nothing but the telling suffers.
    void finish(const char *how, bool told) noexcept {
        if (std::exchange(finished_, true)) {
            return;
        }
        ErrorCode ignored;
        socket_.close(ignored);
        session_.close();
        server_.totals_.capturesLost += capture_.lost() ? 1 : 0;
        try {
            const Summary summary = session_.finish(how);
            if (told) {
                const std::string text = summaryText(summary);
                std::fwrite(text.data(), 1, text.size(), stderr);
            }
            server_.output_.flush();
        } catch (const std::bad_alloc &) {
            std::fputs("memory is out: a connection has ended without its summary\n", stderr);
        }
    }

private:
    void readable(ErrorCode error) {
        if (finished_) {
            return;
        }
        session_.wake(server_.spare_);
        const bool more = take(error);
        session_.rest(server_.spare_);
        const std::size_t before = std::exchange(held_, session_.heldBytes());
        if (!more) {
            return;
        }
        server_.holds(held_, before);
        if (server_.overShare(held_)) {
            end("it holds too much of the memory of all");
        } else {
            read();
        }
    }

    // False once it has ended.
    bool take(ErrorCode error) {
        const StreamDecoder::Space space = session_.prepare();
        std::size_t count = 0;
        if (!error) {
            count = socket_.read_some(boost::asio::buffer(space.data, space.size), error);
        }
        if (error == boost::asio::error::would_block || error == boost::asio::error::interrupted) {
            return true;
        }
        capture_.write({space.data, count});
        if (session_.commit(count) && !error) {
            server_.output_.flush();
            return true;
        }
        end(error == boost::asio::error::eof ? "closed by the collector"
                                             : ("connection lost: " + error.message()).c_str());
        return false;
    }

    Server &server_;
    tcp::socket socket_;
    const std::string address_;
    const Server::Clock::time_point since_ = Server::Clock::now();
    Session session_;
    Capture capture_;
    std::size_t held_ = 0; // as the server knows it
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
    while (!io_.stopped()) {
        try {
            if (!tickPending_) {
                tick();
            }
            io_.run();
        } catch (const std::bad_alloc &) { // no connection's own: what has to go on is started again
            std::this_thread::sleep_for(kTick);
        }
    }
    for (const auto &connection : connections_) {
        connection->finish("receiver ended", true);
    }
    connections_.clear();
}

void Server::accept() {
    acceptor_.async_accept([this](ErrorCode error, tcp::socket socket) {
        acceptPending_ = false;
        if (!error) {
            accepted(std::move(socket));
            accept();
        } else {
            acceptFailed(error);
        }
    });
    acceptPending_ = true;
}

// No descriptor or no memory left, perhaps. The next tick tries again; who waits to be accepted goes on
// waiting.
void Server::acceptFailed(const ErrorCode &error) {
    const Clock::time_point now = Clock::now();
    if (acceptToldAt_ == Clock::time_point() || now - acceptToldAt_ >= kTellAgain) {
        std::fprintf(stderr, "cannot accept connections: %s; trying again\n", std::strerror(error.value()));
        acceptToldAt_ = now;
    }
}

void Server::accepted(tcp::socket socket) {
    try {
        const std::string address = addressOf(socket);
        const auto origin = origins_.find(address);
        if (connections_.size() >= options_.maxConnections) {
            refuse(address, "connections", options_.maxConnections);
        } else if (origin != origins_.end() && origin->second.connections >= options_.maxPerAddress) {
            refuse(address, "connections from one address", options_.maxPerAddress);
        } else {
            open(std::move(socket), address);
        }
    } catch (const std::bad_alloc &) {
        ++totals_.refused;
    }
}

void Server::open(tcp::socket socket, const std::string &address) {
    ErrorCode ignored;
    socket.set_option(boost::asio::socket_base::keep_alive(true),
                      ignored); // a vanished peer must free its place
    socket.non_blocking(true, ignored);
    Origin &origin = origins_[address];
    connections_.push_back(
        std::make_shared<Connection>(*this, std::move(socket), address, ++lastConnection_));
    ++origin.connections;
    const auto connection = connections_.back();
    try {
        connection->read();
    } catch (const std::bad_alloc &) {
        connection->end("memory is out");
    }
}

// One line an address and minute: whoever is refused tries again at once.
void Server::refuse(const std::string &address, const char *why, std::size_t limit) {
    ++totals_.refused;
    if (origins_.size() >= kMaxOrigins && origins_.count(address) == 0) {
        return; // counted, not told
    }
    Origin &origin = origins_[address];
    ++origin.untold;
    const Clock::time_point now = Clock::now();
    if (origin.toldAt == Clock::time_point() || now - origin.toldAt >= kTellAgain) {
        std::fprintf(stderr, "refused %llu connections from %s over the limit of %zu %s\n",
                     static_cast<unsigned long long>(std::exchange(origin.untold, 0)), address.c_str(), limit,
                     why);
        origin.toldAt = now;
    }
}

bool Server::overShare(std::size_t held) const {
    return heldBytes_ > options_.maxMemoryBytes && held > options_.maxMemoryBytes / connections_.size();
}

// Whoever connects and goes, again and again, does not fill the log.
bool Server::tellsEnd(const std::string &address) noexcept {
    const auto found = origins_.find(address);
    if (found == origins_.end()) {
        return true;
    }
    Origin &origin = found->second;
    const Clock::time_point now = Clock::now();
    if (origin.ends == 0 || now - origin.endsSince >= kTellAgain) {
        origin.endsSince = now;
        origin.ends = 0;
    }
    if (++origin.ends == kEndsTold + 1) {
        std::fprintf(stderr, "%zu connections from %s have ended within a minute: the others are not told\n",
                     kEndsTold, address.c_str());
    }
    return origin.ends <= kEndsTold;
}

void Server::closed(const Connection &connection) noexcept {
    const auto found = origins_.find(connection.address());
    if (found != origins_.end() && --found->second.connections == 0 && origins_.size() > kMaxOrigins) {
        origins_.erase(found);
    }
    heldBytes_ -= connection.heldBytes();
    connections_.erase(std::remove_if(connections_.begin(), connections_.end(),
                                      [&](const auto &each) { return each.get() == &connection; }),
                       connections_.end());
}

void Server::lookAfterConnections() {
    const Clock::time_point now = Clock::now();
    const auto since = now - std::chrono::duration_cast<Clock::duration>(
                                 std::chrono::duration<double>(options_.initSeconds));
    std::vector<std::shared_ptr<Connection>> silent;
    for (const auto &connection : connections_) {
        if (!connection->inTime(since)) {
            silent.push_back(connection);
        }
    }
    for (const auto &connection : silent) {
        connection->end("no initial block in time");
    }
    for (auto at = origins_.begin(); at != origins_.end();) {
        const Clock::time_point told = std::max(at->second.toldAt, at->second.endsSince);
        const bool idle = at->second.connections == 0 && now - told >= kTellAgain;
        at = idle ? origins_.erase(at) : std::next(at);
    }
}

void Server::tick() {
    tickPending_ = false;
    draining_ = draining_ || mustEnd();
    if (draining_) {
        drain();
    }
    bytesAtTick_ = totals_.bytes;
    if (!acceptPending_) {
        accept();
    }
    lookAfterConnections();
    refreshTable();
    timer_.expires_after(kTick);
    timer_.async_wait([this](ErrorCode) { tick(); });
    tickPending_ = true;
}

bool Server::mustEnd() const {
    return stop_.load(std::memory_order_relaxed) || Clock::now() >= endAt_;
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
