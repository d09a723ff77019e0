#include "FileTarget.h"

#include <cerrno>
#include <filesystem>
#include <tuple>

#include <fcntl.h>
#include <unistd.h>

namespace lgkit {

namespace {

constexpr const char *linePattern = "[%Y-%m-%d %H:%M:%S.%e %z] [%t] %v";
constexpr std::chrono::seconds retryPause{10};

// A pipe that nobody reads would keep the worker waiting. All other faults are left to the opening itself.
bool isUnreadPipe(const std::string &file) {
    const int probe = open(file.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (probe >= 0) {
        close(probe);
    }
    return probe < 0 && errno == ENXIO;
}

} // namespace

void FileTarget::followHandler() {
    const unsigned version = handler_.version();
    if (version == version_) {
        return;
    }
    // All that may fail for want of memory comes first, so that a change is followed whole or tried again.
    std::string fileName = handler_.get("fileName").value_or("");
    const size_t maxFileBytes = handler_.number("maxFileSize", 10000000, 1000, 2000000000);
    const size_t maxFiles = handler_.number("maxFiles", 5, 1, 100);
    version_ = version;
    if (std::tie(fileName, maxFileBytes, maxFiles) != std::tie(fileName_, maxFileBytes_, maxFiles_)) {
        fileName_ = std::move(fileName);
        maxFileBytes_ = maxFileBytes;
        maxFiles_ = maxFiles;
        sink_.reset();
        nextTry_ = {};
    }
}

void FileTarget::open() {
    if (sink_ || fileName_.empty() || std::chrono::steady_clock::now() < nextTry_) {
        return;
    }
    if (isUnreadPipe(fileName_)) {
        giveUpForNow();
        return;
    }
    sink_ = std::make_unique<Sink>(fileName_, maxFileBytes_, maxFiles_ - 1);
    sink_->set_pattern(linePattern);
}

void FileTarget::giveUpForNow() {
    sink_.reset();
    nextTry_ = std::chrono::steady_clock::now() + retryPause;
}

void FileTarget::write(const spdlog::details::log_msg &message) {
    try {
        followHandler();
        open();
        if (sink_) {
            sink_->log(message);
        }
    } catch (...) {
        giveUpForNow();
    }
}

void FileTarget::flush() {
    try {
        if (sink_) {
            sink_->flush();
        }
    } catch (...) {
        giveUpForNow();
    }
}

std::string FileTarget::directory() const {
    return std::filesystem::path(fileName_).parent_path().string();
}

} // namespace lgkit
