// The bounded queue of records and the one thread that writes them. Posting never waits for the thread: when
// the queue is full the oldest record goes, and the loss is told in one line once the queue has room again.
// The worker is never destroyed and its thread never joined, as a server's threads may log while the process
// exits.
#pragma once

#include "Record.h"
#include "RecordWriter.h"

#include <condition_variable>

#include <sys/types.h>

#include <spdlog/details/mpmc_blocking_q.h>

namespace lgkit {

class LogWorker {
public:
    // Starts the worker, unless it runs. `queueSize` is in records. Throws if there is no thread to be had.
    static void start(size_t queueSize);

    // Null before the start.
    static LogWorker *running() { return instance_.load(std::memory_order_acquire); }

    // Any thread. May throw std::bad_alloc only.
    void post(Record &&record) { queue_.enqueue_nowait(std::move(record)); }

    // Waits until what was posted before is on disk, at most `limit`. False if it took longer, or in a
    // process that was forked off and so has no worker thread.
    bool drain(std::chrono::milliseconds limit);

private:
    explicit LogWorker(size_t queueSize);
    void startThread();
    void run();
    void step();
    void handle(const Record &record);
    void finishDrain(unsigned ticket);
    void rest();
    void reportLoss();

    static std::atomic<LogWorker *> instance_;

    const size_t queueSize_;
    const pid_t process_;
    spdlog::details::mpmc_blocking_queue<Record> queue_;

    // The worker thread's own.
    RecordWriter writer_;
    LgkObject *lastLogger_ = nullptr;
    bool unflushed_ = false;
    size_t handled_ = 0;
    size_t reportedLoss_ = 0;
    std::chrono::steady_clock::time_point nextLossReport_{};

    std::mutex drainLock_; // guards the two tickets
    std::condition_variable drained_;
    unsigned requestedTicket_ = 0;
    unsigned drainedTicket_ = 0;
};

} // namespace lgkit
