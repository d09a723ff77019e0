// The socket of a network agent. It is non-blocking underneath: every wait is made in short steps that look
// at `alive_`, so that a stop is never held up by an unreachable or stalled server. What fails because of a
// stop fails in silence.

#include "NetworkAgent.h"

#include "ProbeLgKit.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <netdb.h>
#include <new>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

constexpr int MAX_PORT = 99999; // keeps the service text at five digits
constexpr int STOP_TEST_MS = 200;

// The system's words for an error number.
class ErrorText {
public:
    explicit ErrorText(int number) : words(strerror_r(number, room, sizeof(room))) {}
    const char *text() const { return words; }

private:
    char room[128];
    const char *words;
};

} // namespace

bool NetworkAgent::connect2ps(const char *server_host_addr, int server_tcp_port, int buffsize) {
    AM_TRACE_SCOPE(
        naTracer, LGK_DEBUG_MID,
        "NetworkAgent::connect2ps( const char *server_host_addr, int server_tcp_port, int buffsize )");
    const AddressList server = lookUp(server_host_addr, std::min(server_tcp_port, MAX_PORT), __LINE__);
    const addrinfo *chosen = chooseAddress(server.get());
    if (chosen == nullptr || socket_ < 0) {
        return false;
    }
    if (!establish(*chosen)) {
        const int cause = errno;
        if (alive_) {
            messageError(1059, "socket connect() failure [%s:%d] Errno: %d", server_host_addr,
                         server_tcp_port, cause);
            traceError("Error Msg: %s at %s line %d", ErrorText(cause).text(), __FILE_NAME__, __LINE__);
        }
        close(socket_);
        socket_ = -1;
        return false;
    }
    constexpr char done[] = "Successfully connected to PS Host: %s Port: %d Buffer Size: %d";
    messageInfo(1060, done, server_host_addr, server_tcp_port, buffsize);
    traceInfo(done, server_host_addr, server_tcp_port, buffsize);
    setSocketOptions(buffsize);
    return true;
}

// Null, and told unless it is being stopped, if there are none. The agent sleeps meanwhile as it does in its
// other pauses.
AddressList NetworkAgent::lookUp(const char *host, int port, int line) {
    lookup_.ask(host, port);
    for (int64_t pause = 1; !lookup_.answered(); pause = std::min<int64_t>(2 * pause, STOP_TEST_MS)) {
        if (!alive_) {
            return nullptr;
        }
        sleepFor(pause);
    }
    AddressList list = lookup_.take();
    if (list == nullptr) {
        traceError("Error Msg: %s at %s line %d",
                   lookup_.result() == EAI_SYSTEM ? ErrorText(lookup_.cause()).text()
                                                  : gai_strerror(lookup_.result()),
                   __FILE_NAME__, line);
    }
    return list;
}

// Without a bind address the first one that a socket can be made for. With one the walk goes on to its end,
// or to the first bind that fails, and chooses none: a configured bind address ends every attempt.
const addrinfo *NetworkAgent::chooseAddress(const addrinfo *list) {
    for (const addrinfo *address = list; address != nullptr; address = address->ai_next) {
        if (!openSocket(*address)) {
            continue;
        }
        if (bindAddress_[0] == '\0') {
            return address;
        }
        if (!bindLocal()) {
            return nullptr;
        }
    }
    return nullptr;
}

bool NetworkAgent::openSocket(const addrinfo &address) {
    traceInfo("NAID(%d): Connection Attempt for Family=%d, Socktype=%d, Protocol=%d", id_, address.ai_family,
              address.ai_socktype, address.ai_protocol);
    strandSocket();
    socket_ =
        socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address.ai_protocol);
    if (socket_ < 0) {
        traceError("NAID(%d): Error Msg: %s at %s line %d", id_, ErrorText(errno).text(), __FILE_NAME__,
                   __LINE__);
        return false;
    }
    traceInfo("NAID(%d): Socket creation successful at %s line %d", id_, __FILE_NAME__, __LINE__);
    return true;
}

// A host has few addresses; a socket for which there is no more room is not kept.
void NetworkAgent::strandSocket() {
    if (socket_ >= 0 && strandedCount_ < MAX_STRANDED) {
        strandedSockets_[strandedCount_++] = socket_;
    } else if (socket_ >= 0) {
        close(socket_);
    }
}

// False only if the bind itself failed.
bool NetworkAgent::bindLocal() {
    const int port = bindPort_ < 0 || bindPort_ > MAX_PORT ? MAX_PORT : bindPort_;
    const AddressList local = lookUp(bindAddress_, port, __LINE__);
    if (local == nullptr) {
        return true;
    }
    const addrinfo &address = *local;
    traceInfo("Bind Attempt for Family=%d, Socktype=%d, Protocol=%d", address.ai_family, address.ai_socktype,
              address.ai_protocol);
    if (bind(socket_, address.ai_addr, address.ai_addrlen) != 0) {
        const int cause = errno;
        traceError("Socket bind() failure [%s:%d] Error: %s ErrorNO: %d", bindAddress_, port,
                   ErrorText(cause).text(), cause);
        return false;
    }
    traceInfo("Socket bind successful [%s:%d]", bindAddress_, port);
    return true;
}

// False with `errno` set.
bool NetworkAgent::establish(const addrinfo &address) {
    if (connect(socket_, address.ai_addr, address.ai_addrlen) != 0) {
        if (errno != EINPROGRESS && errno != EINTR) {
            return false;
        }
        int result = 0;
        socklen_t size = sizeof(result);
        if (!waitForSocket(POLLOUT, NO_TIMEOUT) ||
            getsockopt(socket_, SOL_SOCKET, SO_ERROR, &result, &size) != 0) {
            return false;
        }
        if (result != 0) {
            errno = result;
            return false;
        }
    }
    if (connectedToItself()) {
        errno = ECONNREFUSED;
        return false;
    }
    return true;
}

// A connect to a free local port can be given that very port as its own and so meet itself: the agent would
// write to itself and keep the server from its port.
bool NetworkAgent::connectedToItself() const {
    sockaddr_storage here{};
    sockaddr_storage there{};
    socklen_t hereSize = sizeof(here);
    socklen_t thereSize = sizeof(there);
    return getsockname(socket_, reinterpret_cast<sockaddr *>(&here), &hereSize) == 0 &&
           getpeername(socket_, reinterpret_cast<sockaddr *>(&there), &thereSize) == 0 &&
           hereSize == thereSize && memcmp(&here, &there, hereSize) == 0;
}

// True when the socket is ready, or has an error for the next call to find. False with `errno` set: ECANCELED
// if the agent is being stopped, EAGAIN after `limitSeconds` (0 or all ones: no limit).
bool NetworkAgent::waitForSocket(short events, uint32_t limitSeconds) const {
    const bool limited = limitSeconds != 0 && limitSeconds != NO_TIMEOUT;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(limitSeconds);
    while (alive_) {
        pollfd watched{socket_, events, 0};
        const int ready = poll(&watched, 1, STOP_TEST_MS);
        if (ready > 0) {
            return true;
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
        if (limited && std::chrono::steady_clock::now() >= end) {
            errno = EAGAIN;
            return false;
        }
    }
    errno = ECANCELED;
    return false;
}

void NetworkAgent::setSocketOptions(int32_t buffsize) {
    constexpr char failed[] = "Setting options on socket failed, ERRNO: %s";
    setSocketOption(SO_SNDBUF, &buffsize, sizeof(buffsize), "Successful in setting PS socket buffer size: %d",
                    buffsize, failed);
    if (nagleOff_) {
        constexpr int OPTION = 1; // at the socket level, with this number, as it has always been set
        const int off = 0;
        setSocketOption(OPTION, &off, sizeof(off), "Successful in setting PS socket Nagle Algorithm to Off",
                        off, failed);
    }
    if (socketTimeout_ != NO_TIMEOUT) {
        const timeval limit{static_cast<time_t>(socketTimeout_), 0};
        const int seconds = static_cast<int>(socketTimeout_);
        setSocketOption(SO_SNDTIMEO, &limit, sizeof(limit),
                        "Successful in setting PS socket send time out: %d (secs)", seconds,
                        "Setting send timeout option on socket failed, ERRNO: %s");
        setSocketOption(SO_RCVTIMEO, &limit, sizeof(limit),
                        "Successful in setting PS socket read time out: %d (secs)", seconds,
                        "Setting receive timeout option on socket failed, ERRNO: %s");
    }
}

// None of them can fail the connection.
void NetworkAgent::setSocketOption(int option, const void *value, size_t size, const char *doneText,
                                   int figure, const char *failedText) {
    if (setsockopt(socket_, SOL_SOCKET, option, value, static_cast<socklen_t>(size)) == 0) {
        traceInfo(doneText, figure);
    } else {
        traceError(failedText, ErrorText(errno).text());
    }
}

bool NetworkAgent::disconnect2ps() {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MID, "NetworkAgent::disconnect2ps()");
    const bool closed = socket_ <= 0 || close(socket_) == 0;
    const int cause = errno;
    socket_ = -1;
    opened_ = false;
    while (strandedCount_ > 0) {
        close(strandedSockets_[--strandedCount_]);
    }
    if (closed) {
        traceInfo("NAID(%d): Successful in closing PS socket[%s:%d]", id_, psHost_, psPort_);
    } else {
        traceError("NAID(%d): Error occured when closing PS socket[%s:%d], ERRNO: %s", id_, psHost_, psPort_,
                   ErrorText(cause).text());
    }
    return closed;
}

// MSG_NOSIGNAL: a server that went away must not raise a signal in the process that is being monitored.
long NetworkAgent::sendToRemoteHost(const char *ptr, const long nbytes) {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MAX,
                   "NetworkAgent::sendToRemoteHost( const char *ptr, const long nbytes )");
    if (nbytes <= 0) {
        return 0;
    }
    long sent = 0;
    while (sent < nbytes) {
        const ssize_t step = send(socket_, ptr + sent, static_cast<size_t>(nbytes - sent), MSG_NOSIGNAL);
        if (step >= 0) {
            sent += step;
        } else if (errno != EINTR && !(errno == EAGAIN && waitForSocket(POLLOUT, socketTimeout_))) {
            if (alive_) {
                const int cause = errno;
                messageError(1061, "Socket write to PS failed, [%s:%d], ERRNO: %s", psHost_, psPort_,
                             ErrorText(cause).text());
            }
            return -1;
        }
    }
    traceSent(ptr, nbytes);
    return sent;
}

// The bytes up to their first NUL: that is all that a text in the log can show.
void NetworkAgent::traceSent(const char *ptr, long nbytes) const {
    if (LgkIsLoggable(naTracer, LGK_DEBUG_MID)) {
        const size_t length = strnlen(ptr, static_cast<size_t>(nbytes));
        const std::unique_ptr<char[]> text(new (std::nothrow) char[length + 1]);
        if (text == nullptr) {
            return;
        }
        memcpy(text.get(), ptr, length);
        text[length] = '\0';
        AM_TRACE(naTracer, LGK_DEBUG_MID,
                 "NetworkAgent::sendToRemoteHost( const char *ptr, const long nbytes )",
                 "NAID(%d): Successfully sent data buffer[%s] with buffer length[%d] to PS", id_, text.get(),
                 static_cast<int>(nbytes));
    }
}
