#include "JVMTIGCProcessor.h"

#include "platform.h"

namespace {

constexpr int64_t POLL_MS = 100000;

int64_t wallMillis() {
    uint32_t sec = 0;
    uint32_t usec = 0;
    getCurrentTime(&sec, &usec);
    return int64_t{sec} * 1000 + usec / 1000;
}

} // namespace

void JVMTIGCProcessor::gcStart() {
    const ZykLockGuard guard(lock);
    started = wallMillis();
}

void JVMTIGCProcessor::gcFinish() {
    const ZykLockGuard guard(lock);
    if (ring.count == GCRing::ENTRIES) {
        ++dropped;
        return;
    }
    int64_t(&entry)[2] = ring.times[(ring.head + ring.count) % GCRing::ENTRIES];
    entry[0] = started;
    entry[1] = wallMillis();
    ++ring.count;
    lock.notifyAll();
}

void JVMTIGCProcessor::startNative() {
    const ZykLockGuard guard(lock);
    running = true;
}

void JVMTIGCProcessor::stopNative() {
    const ZykLockGuard guard(lock);
    running = false;
    ring.head = 0;
    ring.count = 0;
    dropped = 0;
    lock.notifyAll();
}

bool JVMTIGCProcessor::getGCEvent(int64_t (&times)[2]) {
    const ZykLockGuard guard(lock);
    while (running) {
        if (ring.count > 0) {
            times[0] = ring.times[ring.head][0];
            times[1] = ring.times[ring.head][1];
            ring.head = (ring.head + 1) % GCRing::ENTRIES;
            --ring.count;
            return true;
        }
        lock.wait(POLL_MS);
    }
    return false;
}
