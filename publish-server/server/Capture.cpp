#include "server/Capture.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace ps {
namespace {

std::string stem(std::uint64_t connection) {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    gmtime_r(&now, &parts);
    char text[64];
    std::strftime(text, sizeof text, "%Y%m%dT%H%M%SZ", &parts);
    return std::string(text) + "-" + std::to_string(getpid()) + "-conn" + std::to_string(connection);
}

} // namespace

Capture::Capture(const std::string &directory, std::uint64_t connection) {
    if (directory.empty()) {
        return;
    }
    std::error_code ignored; // fopen tells what is wrong
    std::filesystem::create_directories(directory, ignored);
    const std::string base = directory + "/" + stem(connection);
    path_ = base + ".bin";
    for (int i = 2; i < 1000; ++i) {
        file_.reset(std::fopen(path_.c_str(), "wbx")); // x: fails if the file exists
        if (file_ != nullptr || errno != EEXIST) {
            break;
        }
        path_ = base + "-" + std::to_string(i) + ".bin";
    }
    if (file_ == nullptr) {
        giveUp("cannot create");
        return;
    }
    std::setvbuf(file_.get(), nullptr, _IONBF, 0);
}

void Capture::write(std::string_view bytes) {
    if (file_ != nullptr && std::fwrite(bytes.data(), 1, bytes.size(), file_.get()) != bytes.size()) {
        giveUp("cannot write");
    }
}

void Capture::giveUp(const char *what) {
    std::fprintf(stderr, "%s capture file %s: %s\n", what, path_.c_str(), std::strerror(errno));
    file_.reset();
    lost_ = true;
}

} // namespace ps
