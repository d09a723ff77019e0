// What a network agent does so that no loss goes untold: it looks whether the receiver is still there before
// it writes, knows what may not have been read when a connection ends, and keeps its queue for the next one.

#include "NetworkAgent.h"

#include "Inside.h"
#include "MemoryMonitor.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "ProtocolVisitor.h"
#include "platform.h"

#include <algorithm>
#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace {

constexpr int END_STEP_MS = 20;
constexpr int END_STEPS = 50;
constexpr size_t FAREWELL_AREA = 100;

} // namespace

// The receiver never writes, so an orderly end is seen by a look alone. An operating system that closes a
// socket with unread bytes in it resets the connection: after an orderly end all that was acknowledged was
// read. A reset purges what waits in the socket; so that is asked first, and believed only where the look
// behind it finds no reset. After our own end both sides have hung up when the receiver ends too: that is an
// orderly end.
bool NetworkAgent::hungUp(bool afterOwnEnd) {
    if (!exactDrops_ || socket_ < 0) {
        return false;
    }
    int waiting = 0;
    const bool known = ioctl(socket_, SIOCOUTQ, &waiting) == 0;
    pollfd watched{socket_, POLLRDHUP, 0};
    const bool ended = poll(&watched, 1, 0) > 0;
    const int disorder = afterOwnEnd ? POLLERR : POLLERR | POLLHUP;
    if (known && (watched.revents & disorder) == 0) {
        sent_.acknowledged(waiting, monotonicMicros() / 1000);
        if (ended) {
            sent_.forgetAcknowledged();
        }
    }
    return ended;
}

// What has not arrived would have to be told as lost if the stream were ended now.
bool NetworkAgent::isBehind() {
    return exactDrops_ && !hungUp() && !sent_.allAcknowledged();
}

// Ends the present stream in order: what was written is given a second to arrive.
void NetworkAgent::endStream() {
    if (!exactDrops_ || socket_ < 0) {
        return;
    }
    shutdown(socket_, SHUT_WR);
    bool ended = hungUp(true);
    for (int step = 0; step < END_STEPS && alive_ && !ended && !sent_.allAcknowledged(); ++step) {
        pollfd watched{socket_, POLLRDHUP, 0};
        poll(&watched, 1, END_STEP_MS);
        ended = hungUp(true);
    }
    if (!ended) {
        sent_.forgetAcknowledged(); // a receiver that stands reads what it has
    }
    accountForSent();
}

// The connection is lost: what its receiver may not have read is told as lost.
void NetworkAgent::accountForSent() {
    if (!exactDrops_) {
        return;
    }
    const DropFigures figures = sent_.unread();
    sent_.restart();
    if (figures.sum() > 0) {
        traceWarn("NAID(%d): Connection lost with packets under way, possibly lost: %lu events", id_,
                  static_cast<unsigned long>(figures.sum()));
        lossAccount.enter(figures);
    }
}

// Packets that wait for a connection must not keep the collector at its limits, least of all in turbo mode,
// where application threads wait.
void NetworkAgent::relieveMemory() {
    const Inside inside;
    const MemoryMonitor *monitor = inside ? memoryMonitor.get() : nullptr;
    if (exactDrops_ && (notAccepting || (monitor != nullptr && monitor->inTurboMode()))) {
        flushDataQueue();
    }
}

// What is known to be lost, as the last packet of a stream that is whole. Nobody waits for it. A connection
// that has died unnoticed takes none; what was under way on it is told after the next start.
void NetworkAgent::sayFarewell() {
    if (!exactDrops_ || !connected_ || !opened_) {
        return;
    }
    if (hungUp()) {
        accountForSent();
        return;
    }
    if (lossAccount.isEmpty()) {
        return;
    }
    char area[FAREWELL_AREA];
    ProtocolVisitor visitor(area, area, area + sizeof(area), env_);
    visitor.addPacketHeaderRecord(1);
    const DropFigures figures = lossAccount.take();
    DroppedEvent evt;
    figures.fill(evt);
    evt.addToBuffer(&visitor);
    write(area, visitor.getCursor() - area, figures);
}
