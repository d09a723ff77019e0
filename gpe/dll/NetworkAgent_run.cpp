// The thread of a network agent: its loop, and how it gets back to the Publish Server.

#include "NetworkAgent.h"

#include "ProbeLgKit.h"
#include "platform.h"

#include <algorithm>
#include <cstdio>
#include <mutex>

namespace {

constexpr int64_t RECONNECT_STEP_MS = 1000;
constexpr int64_t RENEWAL_PATIENCE_S = 60;
constexpr int SILENT_AFTER_FAILURES = 6;

int64_t monotonicSeconds() {
    return monotonicMicros() / 1000000;
}

} // namespace

void NetworkAgent::runTCPagent(JNIEnv *env) {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MIN, "NetworkAgent::runTCPagent( JNIEnv *env )");
    if (!enterThread(env)) {
        return;
    }
    networkAgentHost.get()->notifyNetworkAgentStatus(this, true);
    messageInfo(1062, "Network Agent Thread Started");
    traceInfo("NAID(%d): Network Agent Thread Started", id_);
    while (alive_) {
        runPass();
    }
    leaveThread();
}

// Under the lock, so that of two threads one is sent away.
bool NetworkAgent::enterThread(JNIEnv *env) {
    const std::lock_guard<PlainLock> guard(entryLock_);
    if (started_ || forgotten_) {
        return false;
    }
    env_ = env;
    alive_ = true;
    started_ = true;
    return true;
}

void NetworkAgent::leaveThread() {
    flushDataQueue();
    sayFarewell();
    alive_ = false;
    started_ = false;
    networkAgentHost.get()->notifyNetworkAgentStatus(this, false);
    traceInfo("Network Agent Thread Stopped");
}

void NetworkAgent::runPass() {
    resetConnectionOnExpiry(monotonicSeconds());
    if (id_ == 0 && getStatisticsEnabled()) {
        networkAgentHost.get()->logStatistics();
    }
    if (!connected_) {
        reconnect();
    } else if (sendNext() == -1) {
        connectionLost();
    } else if (refused_) {
        tellOfRoom();
    }
    if (!noSleep_) {
        restFor(ratePause());
    }
}

int64_t NetworkAgent::ratePause() const {
    const auto share = [this](double part) { return static_cast<int32_t>(part * bufferLimit_); };
    const int64_t base = sleepTime_;
    const int32_t queued = dataQueue_.size();
    if (queued < share(0.2)) {
        return 2 * base;
    }
    if (queued < share(0.5)) {
        return base;
    }
    return queued < share(0.75) ? base / 2 : 0;
}

void NetworkAgent::sleepFor(int64_t ms) {
    if (alive_) {
        pause_.sleep(ms);
    }
}

// Between two packets: a queue that fills needs the thread sooner.
void NetworkAgent::restFor(int64_t ms) {
    if (alive_) {
        pause_.rest(isFilling() ? std::min(ms, Pause::LEAST_MS) : ms);
    }
}

bool NetworkAgent::isFilling() const {
    return queueWakes_ && queueCount() > bufferLimit_ / 4;
}

// Event agents that wait for a connection, or whose packet was refused, need not wait any longer.
void NetworkAgent::tellOfRoom() {
    refused_ = false;
    if (queueWakes_) {
        networkAgentHost.get()->notifyRoom();
    }
}

// A write that a stop cut short is no loss to report, but its stream ends within a packet and is not gone on
// with.
void NetworkAgent::connectionLost() {
    connected_ = false;
    socketDown_ = true;
    if (!alive_) {
        if (hungUp()) { // it was dead before: nothing of what is under way will be read
            accountForSent();
        }
        return;
    }
    accountForSent();
    traceError("Write failed, looks like socket is down, retrying to connect to PS");
    networkAgentHost.get()->notifyPSConnectStatus(this, false);
    networkAgentHost.get()->notifyConnectionListeners(this);
}

// A receiver that is behind gets some time more.
void NetworkAgent::resetConnectionOnExpiry(int64_t now) {
    if (resetSeconds_ < 1 || connectTime_ == NONE || now - connectTime_ < resetSeconds_) {
        return;
    }
    if (now - connectTime_ < resetSeconds_ + RENEWAL_PATIENCE_S && isBehind()) {
        return;
    }
    AM_TRACE(naTracer, LGK_DEBUG_MID, "NetworkAgent::resetConnectionOnExpiry()",
             "NAID(%d): Resetting socket connection after %d seconds", id_, resetSeconds_);
    endStream();
    connected_ = false;
    socketDown_ = true;
    networkAgentHost.get()->notifyConnectionListeners(this);
    connectTime_ = NONE;
}

// What was queued for the old connection is thrown away: a new stream begins with the initial records. Where
// losses are told to the event it is kept, as long as memory allows.
void NetworkAgent::reconnect() {
    AM_TRACE_SCOPE(naTracer, LGK_DEBUG_MID, "NetworkAgent::reconnect()");
    disconnect2ps();
    reconnectPause();
    needAlive_ = true;
    if (!exactDrops_) {
        flushDataQueue();
    }
    int failures = 0;
    while (alive_ && !openStream(failures)) {
        reconnectPause();
    }
    connected_ = true;
    tellOfRoom();
    scheduleReset();
}

void NetworkAgent::reconnectPause() {
    const int32_t seconds = reconnectFrequency_ / 1000;
    AM_TRACE(naTracer, LGK_DEBUG_MID, "NetworkAgent::reconnectPause()", "Reconnect wait %lu seconds",
             static_cast<unsigned long>(seconds));
    relieveMemory();
    for (int32_t i = 0; i < seconds && alive_; ++i) {
        sleepFor(RECONNECT_STEP_MS);
        relieveMemory();
    }
}

// One attempt. True if there is nothing more to try: the stream is open, or the agent was stopped.
bool NetworkAgent::openStream(int &failures) {
    disconnect2ps();
    sent_.restart();
    networkAgentHost.get()->notifyPSConnectStatus(this, false);
    const bool known = getPSDetailsFromKernel(env_, failures);
    if (!alive_) {
        return true;
    }
    if (!known) {
        reportNoDetails(failures);
        return false;
    }
    traceInfo("NAID(%d): PS Proxy details successfully obtained from Kernel, Host: %s Port: %d", id_, psHost_,
              psPort_);
    if (!connect2ps(psHost_, psPort_, sendBuffSize_)) {
        if (!alive_) {
            return true;
        }
        messageError(1064, "Failed to connect to PS socket");
        traceError("Failed to connect to PS socket");
        reconnectPause();
        return false;
    }
    failures = 0;
    messageInfo(1063, "Successfully connected to PS socket");
    if (sendInitRecords() || !alive_) {
        return true;
    }
    traceInfo("NAID(%d): SendInitRecords was NOT successful, Check for memory.", id_);
    connected_ = true;
    return false;
}

// Speaks up until it is clear that nobody knows, then goes silent.
void NetworkAgent::reportNoDetails(int &failures) {
    if (failures >= SILENT_AFTER_FAILURES) {
        return;
    }
    if (++failures < SILENT_AFTER_FAILURES) {
        traceWarn("Could not obtain PS proxy details from Kernel.");
        return;
    }
    messageWarn(1065, "Could not obtain PS proxy details from Kernel");
    traceWarn(
        "Could not obtain PS proxy details from Kernel after 6 times trying - turn off logging from now on");
}

void NetworkAgent::scheduleReset() {
    if (resetSeconds_ > 0) {
        connectTime_ = monotonicSeconds();
        traceInfo(
            "NAID(%d): The next Network agent to Publish server socket reset will take place in %d seconds",
            id_, resetSeconds_);
    }
}

bool NetworkAgent::getPSDetailsFromKernel(JNIEnv *env, int nCntLog) {
    psPort_ = -1;
    sendBuffSize_ = -1;
    psHost_[0] = '\0';
    PSDetails details;
    if (!networkAgentHost.get()->getPSDetailsFromKernel(env, nCntLog, this, details)) {
        return false;
    }
    snprintf(psHost_, sizeof(psHost_), "%s", details.host);
    psPort_ = details.port;
    sendBuffSize_ = details.sendBuffSize;
    return true;
}
