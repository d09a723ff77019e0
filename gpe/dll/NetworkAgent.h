// One TCP connection to the Publish Server and the queue of packets for it. The thread inside
// `runTCPagent` owns the socket: it connects, opens the stream, drains the queue at a pace that follows its
// fill level, and goes on trying while the server is away. Any thread may call `sendData`, `stopThread` and
// the readers. At its limit the queue refuses; on a lost connection everything queued is dropped, or kept for
// the next one where losses are told to the event.
#pragma once

#include "AgentSlots.h"
#include "HostLookup.h"
#include "NamedObject.h"
#include "NetworkAgentData.h"
#include "Pause.h"
#include "PlainLock.h"
#include "Relaxed.h"
#include "SentPackets.h"
#include "ZykList.h"
#include "ZykLock.h"

#include <algorithm>
#include <cstdint>
#include <jni.h>
#include <memory>

class NetworkAgent;

// Where the Publish Server listens.
struct PSDetails {
    char host[200] = "";
    int32_t port = -1;
    int32_t sendBuffSize = -1; // bytes
};

// What an agent needs of its pool, on its own thread.
class NetworkAgentHost {
public:
    virtual void notifyNetworkAgentStatus(NetworkAgent *agent, bool status) = 0;
    virtual void notifyPSConnectStatus(NetworkAgent *agent, bool status) = 0;
    virtual void notifyConnectionListeners(NetworkAgent *na) = 0;
    virtual void notifyRoom() const = 0; // packets are taken, for the first time or again
    virtual void logStatistics() = 0;
    // The shared answer; asks Java if the last one is no longer good. False if there is none. `nCntLog`
    // counts the failures so far: from 6 on a failure is not logged.
    virtual bool getPSDetailsFromKernel(JNIEnv *env, int nCntLog, NetworkAgent *na, PSDetails &details) = 0;
    virtual bool setClassDataSent(bool sent) = 0; // gives what it was: of several callers one is the first

protected:
    ~NetworkAgentHost() = default;
};

// The pool; it stands while a thread is in one of its agents.
extern Relaxed<NetworkAgentHost *> networkAgentHost;

class NetworkAgent : public virtual NamedObject, public SharedAgent {
public:
    // Reads its properties. `id` is the index in the pool.
    explicit NetworkAgent(int id);
    ~NetworkAgent() override;

    // The life of the agent on the calling Java thread; returns when it was stopped. Does nothing if another
    // thread is already inside.
    void runTCPagent(JNIEnv *env);
    // Returns when no thread is inside `runTCPagent`; false if one still is when the milliseconds are over.
    bool stopThread(int64_t patienceMs = STOP_PATIENCE_MS);
    static constexpr int64_t STOP_PATIENCE_MS = 5000;
    // Tells the thread to end, without waiting.
    void requestStop();

    // Its thread may be stuck in code of others: whenever it comes back, it leaves.
    void forget();
    // Base pause of the loop, ms. A sleeper wakes at once for a shorter one.
    void setSleepTime(int32_t ms);
    void askForAlive() { needAlive_ = true; }
    void countLossAsTold() { socketDown_ = false; } // of its connection, to the listener

    // Whether the queue takes a packet; if not, event agents are told once it does.
    bool hasRoom();
    // Queues a copy of the bytes; false if the agent is not connected or its queue is full. Null `data` and a
    // negative size count as done. `figures` tells what is lost with them: from here on the agent's to
    // account for, if they were queued.
    bool sendData(const char *data, const int size, const DropFigures &figures = {});

    // Enters in the account of losses, and destroys, what is queued. For the agent's thread, and for its
    // owner once that thread has left.
    void flushDataQueue();

    // Steps of the agent's thread.
    bool connect2ps(const char *server_host_addr, int server_tcp_port, int buffsize);
    bool disconnect2ps();
    // All bytes or -1; `errno` tells why. Waits for a stalled server, but not once a stop was asked for.
    long sendToRemoteHost(const char *ptr, const long nbytes);
    bool sendInitRecords();
    // A packet that says nothing but "alive"; null when memory is out.
    std::unique_ptr<NetworkAgentData> getPSAlivePacket();
    bool getPSDetailsFromKernel(JNIEnv *env, int nCntLog);
    // Gives up the connection once it is older than the reset time; `now` in seconds of the monotonic clock.
    void resetConnectionOnExpiry(int64_t now);
    int64_t ratePause() const; // ms: the fuller the queue, the shorter

    int id() const { return id_; }
    bool isAlive() const { return started_; } // a thread is inside
    int32_t queueCount() const { return dataQueue_.size(); }
    // Not below 0 where one of the two words is already settled or flushed and the other is not.
    int32_t bytesQueued() const { return std::max(queuedBytes_ - sentBytes_, 0); }

    // State that other threads read. It is the thread's to write, but for the operations above.
    Relaxed<int32_t> sleepTime_{500}; // base pause of the loop, ms
    Relaxed<bool> connected_{false};  // the stream is open, the initial records have been dealt with
    Relaxed<bool> alive_{false};      // the thread shall go on
    Relaxed<bool> started_{false};    // the thread is inside `runTCPagent`
    Relaxed<bool> needAlive_{false};  // an alive packet is due
    Relaxed<bool> socketDown_{false}; // the connection was lost; cleared by the manager only

    // Shows sent buffers to Java from now on, or no longer. The first call of all finds `writeTraceEntry` of
    // `owner`; if that fails, the trace stays without effect.
    static void setNetworkTrace(JNIEnv *env, jclass owner, bool on);

private:
    static constexpr uint32_t NO_TIMEOUT = UINT32_MAX;
    static constexpr int64_t NONE = -1;
    static constexpr int MAX_STRANDED = 16;
    static constexpr size_t HOST_ROOM = 256;

    void readProperties();
    void readResetTime();

    // The loop.
    bool enterThread(JNIEnv *env);
    void leaveThread();
    void runPass();
    void sleepFor(int64_t ms);
    void restFor(int64_t ms);
    bool isFilling() const;
    void tellOfRoom();
    void connectionLost();

    // Reconnecting.
    void reconnect();
    void reconnectPause();
    bool openStream(int &failures);
    void reportNoDetails(int &failures);
    void scheduleReset();

    // Sending.
    long sendNext();
    long sendFirst();
    long sendOneByOne();
    long sendBatch();
    long sendAlive();
    long sendBuffer(std::unique_ptr<NetworkAgentData> &buffer);
    long write(const char *ptr, long nbytes, const DropFigures &figures = {});
    void addQueuedBytes(int32_t size);
    void settle();
    void sendClassEvents();
    void traceBuffer(const NetworkAgentData &buffer) const;
    void traceSent(const char *ptr, long nbytes) const;

    // Exact losses; without them these do nothing.
    bool hungUp(bool afterOwnEnd = false);
    bool isBehind();
    void endStream();
    void accountForSent();
    void relieveMemory();
    void sayFarewell();

    // The socket.
    AddressList lookUp(const char *host, int port, int line);
    const addrinfo *chooseAddress(const addrinfo *list);
    void strandSocket();
    bool openSocket(const addrinfo &address);
    bool bindLocal();
    bool establish(const addrinfo &address);
    bool connectedToItself() const;
    bool waitForSocket(short events, uint32_t limitSeconds) const;
    void setSocketOptions(int32_t buffsize);
    void setSocketOption(int option, const void *value, size_t size, const char *doneText, int figure,
                         const char *failedText);

    // Guard themselves.
    ZykList<NetworkAgentData *> dataQueue_{true};
    ZykLock statsLock_;
    Relaxed<int32_t> queuedBytes_{0}; // written under `statsLock_`: ever queued, less what was settled
    Pause pause_;
    PlainLock entryLock_;          // who of two threads is let in
    bool forgotten_ = false;       // guarded by `entryLock_`: no thread is let in any more
    Relaxed<bool> refused_{false}; // a packet, or the question for room, since there was last told of it

    // Set at its birth.
    const int32_t id_;
    const bool exactDrops_;               // losses of any kind are told
    const bool queueWakes_;               // a queue that fills ends the thread's rest
    uint32_t socketTimeout_ = NO_TIMEOUT; // seconds
    int32_t reconnectFrequency_ = 120000; // ms
    int32_t resetSeconds_ = -1;           // forced reconnect interval; not positive: never
    char bindAddress_[HOST_ROOM] = "";    // empty: any
    int32_t bindPort_ = 0;
    int32_t bufferLimit_ = 10; // buffers in the queue
    int32_t popSize_ = 1;      // buffers taken from the queue in one go
    bool popSingle_ = true;
    bool nagleOff_ = false;
    bool noSleep_ = false;

    // Of the agent's thread, and of its owner once that has left.
    JNIEnv *env_ = nullptr;
    int32_t socket_ = -1;
    bool opened_ = false;                    // the initial block is out, whole
    int strandedSockets_[MAX_STRANDED] = {}; // opened on the way to a bind address; closed with `socket_`
    int strandedCount_ = 0;
    HostLookup lookup_;
    char psHost_[HOST_ROOM] = "";
    int32_t psPort_ = -1;
    int32_t sendBuffSize_ = -1;     // bytes
    int64_t connectTime_ = NONE;    // monotonic seconds
    SentPackets sent_;              // on the present connection
    Relaxed<int32_t> sentBytes_{0}; // since the last settling; others read it
};

// Bytes that an agent sends between two settlings of its account; each constructor writes it.
extern Relaxed<int32_t> resetCounter;
