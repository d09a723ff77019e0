// The file behind a file handler: opened with the first record, re-opened elsewhere when the handler's
// properties name another file, rotated by size. Used by the worker thread only. A file that cannot be opened
// or written, or is a pipe that nobody reads, loses its records and is tried again after ten seconds.
#pragma once

#include "LgkObject.h"

#include <chrono>
#include <memory>

#include <spdlog/details/null_mutex.h>
#include <spdlog/sinks/rotating_file_sink.h>

namespace lgkit {

class FileTarget {
public:
    explicit FileTarget(const LgkObject &handler) : handler_(handler) {}

    void write(const spdlog::details::log_msg &message);
    void flush();

    // Where the file lies, empty for a handler without file name.
    std::string directory() const;

private:
    using Sink = spdlog::sinks::rotating_file_sink<spdlog::details::null_mutex>;

    void followHandler();
    void open();
    void giveUpForNow();

    const LgkObject &handler_;
    unsigned version_ = ~0u; // of the handler, as last read
    std::string fileName_;
    size_t maxFileBytes_ = 0;
    size_t maxFiles_ = 0; // the live one and the rotated ones
    std::unique_ptr<Sink> sink_;
    std::chrono::steady_clock::time_point nextTry_{};
};

} // namespace lgkit
