#include "NetworkAgent.h"

#include "ProbeLgKit.h"
#include "PropertyMgr.h"
#include "ThreadData.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <strings.h>

Relaxed<NetworkAgentHost *> networkAgentHost(nullptr);
Relaxed<int32_t> resetCounter(10000);

namespace {

constexpr int32_t LEAST_RESET_SECONDS = 300;
constexpr int64_t STOP_POLL_MS = 1000;

bool isTrue(const char *key) {
    return strcasecmp(stringProperty(key, "false"), "true") == 0;
}

} // namespace

NetworkAgent::NetworkAgent(int id)
    : NamedObject("NetworkAgent"), id_(id), exactDrops_(dropsAreExact()), queueWakes_(queuesWakeAgents()) {
    readProperties();
    traceInfo(
        "NAID(%d): bufferLimit_: %d NagleOff: %d SleepTime: %ld BufferLimit: %d PopSize: %d ResetCntrs: %ld",
        id_, bufferLimit_, nagleOff_, static_cast<long>(sleepTime_), bufferLimit_, popSize_,
        static_cast<long>(resetCounter));
}

// The thread flushes the queue on its way out; somebody may have sent since.
NetworkAgent::~NetworkAgent() {
    flushDataQueue();
    connected_ = false;
    alive_ = false;
    started_ = false;
    socketDown_ = true;
    disconnect2ps();
}

void NetworkAgent::readProperties() {
    socketTimeout_ = static_cast<uint32_t>(intProperty("networkagent.socket.timeout", -1));
    sleepTime_ = longProperty("networkagent.publish.frequency", 500);
    reconnectFrequency_ = longProperty("networkagent.ps.reconnect.frequency", 120000);
    readResetTime();
    const char *bindAddress = stringProperty("am.socket.bindip", nullptr);
    if (boolProperty("networkagent.useclient.bindaddress", false) && bindAddress != nullptr) {
        snprintf(bindAddress_, sizeof(bindAddress_), "%s", bindAddress);
        bindPort_ = intProperty("networkagent.socket.port", 0);
    }
    bufferLimit_ = intProperty("networkagent.buffer.limit", 10);
    nagleOff_ = isTrue("networkagent.socket.nagleoff");
    noSleep_ = isTrue("networkagent.no.sleep");
    popSize_ = std::max(intProperty("na.popbuffer.size", 1), 1);
    popSingle_ = popSize_ == 1;
    resetCounter = intProperty("na.reset.counter", 10000);
}

void NetworkAgent::readResetTime() {
    resetSeconds_ = intProperty("networkagent.socket.resettime", -1);
    if (resetSeconds_ > 0) {
        resetSeconds_ = std::max(resetSeconds_ / 1000, LEAST_RESET_SECONDS);
        traceInfo("NAID(%d): Network agent to Publish server socket will reset every %ld seconds.", id_,
                  static_cast<long>(resetSeconds_));
    }
}

bool NetworkAgent::hasRoom() {
    if (dataQueue_.size() < bufferLimit_) {
        return true;
    }
    refused_ = true;
    return false;
}

bool NetworkAgent::sendData(const char *data, const int size, const DropFigures &figures) {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MAX, "NetworkAgent::sendData( const char* data, const int size )");
    if (!alive_ || !started_ || !connected_) {
        messageWarn(1056, "NetworkAgent Thread is not started/alive/ready, rejecting send data");
        traceWarn("NetworkAgent Thread is not started/alive/ready, rejecting send data");
        return false;
    }
    if (!hasRoom()) {
        traceInfo("NA data queue is full, Queue size: %d %ld BufferLimit: %d %ld ", dataQueue_.size(),
                  static_cast<long>(bytesQueued()), bufferLimit_, static_cast<long>(bufferLimit_));
        messageWarn(1057, "Queue is full, buffer limit reached");
        traceWarn("Queue is full, buffer limit reached");
        return false;
    }
    if (data == nullptr || size < 0) {
        return true;
    }
    std::unique_ptr<NetworkAgentData> buffer = NetworkAgentData::copyOf(data, size);
    if (buffer == nullptr) {
        return false;
    }
    buffer->figures = figures;
    // Counted before it can be seen: the thread may send and settle it at once, and a settling that comes
    // ahead of the count would leave the account too high for good.
    addQueuedBytes(size);
    if (dataQueue_.append(buffer.get())) {
        static_cast<void>(buffer.release());
        if (isFilling()) {
            pause_.hurry();
        }
        return true;
    }
    addQueuedBytes(-size);
    AM_TRACE(naTracer, LGK_DEBUG_MID, "NetworkAgent::sendData( const char* data, const int size )",
             "Queue full detected");
    return false;
}

void NetworkAgent::addQueuedBytes(int32_t size) {
    const ZykLockGuard guard(statsLock_);
    queuedBytes_ += size;
}

// Only this thread adds to `sentBytes_`, so that it takes the lock once in many sends.
void NetworkAgent::settle() {
    if (sentBytes_ <= resetCounter) {
        return;
    }
    const ZykLockGuard guard(statsLock_);
    queuedBytes_ = std::max(queuedBytes_ - sentBytes_, 0);
    sentBytes_ = 0;
}

void NetworkAgent::flushDataQueue() {
    while (NetworkAgentData *buffer = dataQueue_.removeFirst()) {
        lossAccount.enter(buffer->figures);
        delete buffer;
    }
    const ZykLockGuard guard(statsLock_);
    queuedBytes_ = 0;
    sentBytes_ = 0;
}

bool NetworkAgent::stopThread(int64_t patienceMs) {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MIN, "NetworkAgent::stopThread()");
    traceInfo("Network Agent Thread being stopped");
    requestStop();
    for (int64_t waited = 0; started_ && waited < patienceMs; waited += STOP_POLL_MS) {
        requestStop(); // again in each round: the thread may just have entered and raised the flag
        waitOnLocalLock(STOP_POLL_MS);
    }
    return !started_;
}

// A thread that is only now on its way in is sent away, also once the stuck one has left.
void NetworkAgent::forget() {
    {
        const std::lock_guard<PlainLock> guard(entryLock_);
        forgotten_ = true;
        alive_ = false;
    }
    pause_.wake();
}

void NetworkAgent::requestStop() {
    alive_ = false;
    pause_.wake();
}

void NetworkAgent::setSleepTime(int32_t ms) {
    const bool shorter = ms < sleepTime_;
    sleepTime_ = ms;
    if (shorter) {
        pause_.wake();
    }
}
