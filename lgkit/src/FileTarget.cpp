#include "FileTarget.h"

#include <filesystem>
#include <tuple>

namespace lgkit {

namespace {

constexpr const char *linePattern = "[%Y-%m-%d %H:%M:%S.%e %z] [%t] %v";
constexpr std::chrono::seconds retryPause{10};

} // namespace

void FileTarget::followHandler() {
    const unsigned version = handler_.version();
    if (version == version_) {
        return;
    }
    version_ = version;
    const auto before = std::make_tuple(fileName_, maxFileBytes_, maxFiles_);
    fileName_ = handler_.get("fileName").value_or("");
    maxFileBytes_ = handler_.number("maxFileSize", 10000000, 1000, 2000000000);
    maxFiles_ = handler_.number("maxFiles", 5, 1, 100);
    if (before != std::make_tuple(fileName_, maxFileBytes_, maxFiles_)) {
        sink_.reset();
        nextTry_ = {};
    }
}

void FileTarget::open() {
    if (sink_ || fileName_.empty() || std::chrono::steady_clock::now() < nextTry_) {
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
    } catch (const std::exception &) {
        giveUpForNow();
    }
}

void FileTarget::flush() {
    try {
        if (sink_) {
            sink_->flush();
        }
    } catch (const std::exception &) {
        giveUpForNow();
    }
}

std::string FileTarget::directory() const {
    return std::filesystem::path(fileName_).parent_path().string();
}

} // namespace lgkit
