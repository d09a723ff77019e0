#include "LogWorker.h"

#include <csignal>
#include <thread>

#include <pthread.h>
#include <unistd.h>

namespace lgkit {

namespace {

constexpr std::chrono::milliseconds flushPause{200}; // how long a record may stay unflushed in a quiet log
constexpr std::chrono::milliseconds longPause{10000};
constexpr std::chrono::milliseconds drainRetry{100};
constexpr size_t lossCheckInterval = 256;            // records
constexpr std::chrono::milliseconds lossPause{1000}; // between two lines about loss under lasting load

// The process is a server whose signals belong to its own threads.
class SignalsBlocked {
public:
    SignalsBlocked() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t before_;
};

} // namespace

std::atomic<LogWorker *> LogWorker::instance_{nullptr};

LogWorker::LogWorker(size_t queueSize) : queueSize_(queueSize), process_(getpid()), queue_(queueSize) {}

void LogWorker::start(size_t queueSize) {
    static std::mutex *starting = new std::mutex;
    std::lock_guard<std::mutex> guard(*starting);
    if (running() != nullptr) {
        return;
    }
    std::unique_ptr<LogWorker> worker(new LogWorker(queueSize));
    worker->startThread();
    instance_.store(worker.release(), std::memory_order_release);
}

void LogWorker::startThread() {
    const SignalsBlocked inherited;
    std::thread thread([this] { run(); });
    pthread_setname_np(thread.native_handle(), "lgkit");
    thread.detach();
}

void LogWorker::run() {
    for (;;) {
        try {
            step();
        } catch (...) {
            // Out of memory, at worst: this record is lost, the next one may fare better.
        }
    }
}

void LogWorker::step() {
    Record record;
    if (!queue_.dequeue_for(record, unflushed_ ? flushPause : longPause)) {
        rest();
    } else if (record.logger == nullptr) {
        finishDrain(record.drainTicket);
    } else {
        handle(record);
    }
}

void LogWorker::handle(const Record &record) {
    lastLogger_ = record.logger;
    unflushed_ = true;
    writer_.write(record);
    if (++handled_ % lossCheckInterval == 0 && queue_.size() < queueSize_ / 2 &&
        std::chrono::steady_clock::now() >= nextLossReport_) {
        reportLoss();
    }
}

void LogWorker::rest() {
    reportLoss();
    writer_.flush();
    unflushed_ = false;
}

void LogWorker::reportLoss() {
    const size_t lost = queue_.overrun_counter();
    if (lost == reportedLoss_ || lastLogger_ == nullptr) {
        return;
    }
    Record line;
    line.logger = lastLogger_;
    line.level = 5000;
    line.thread = spdlog::details::os::thread_id();
    line.time = std::chrono::system_clock::now();
    line.text =
        "WARN " + std::to_string(lost - reportedLoss_) + " log records were lost, the log queue was full";
    reportedLoss_ = lost;
    nextLossReport_ = std::chrono::steady_clock::now() + lossPause;
    writer_.write(line);
}

void LogWorker::finishDrain(unsigned ticket) {
    rest();
    {
        std::lock_guard<std::mutex> guard(drainLock_);
        drainedTicket_ = std::max(drainedTicket_, ticket);
    }
    drained_.notify_all();
}

bool LogWorker::drain(std::chrono::milliseconds limit) {
    if (getpid() != process_) {
        return false;
    }
    const auto deadline = std::chrono::steady_clock::now() + limit;
    std::unique_lock<std::mutex> lock(drainLock_);
    const unsigned ticket = ++requestedTicket_;
    const auto done = [this, ticket] { return drainedTicket_ >= ticket; };
    while (!done() && std::chrono::steady_clock::now() < deadline) {
        Record marker; // posted again, as a storm of records may have pushed the last one out
        marker.drainTicket = ticket;
        post(std::move(marker));
        drained_.wait_for(lock, drainRetry, done);
    }
    return done();
}

} // namespace lgkit
