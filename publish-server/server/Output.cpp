#include "server/Output.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>

#include <poll.h>
#include <unistd.h>

namespace ps {

void Output::write(std::string_view text) {
    pending_ += text;
    if (pending_.size() >= kBufferBytes) {
        flush();
    }
}

void Output::flush() {
    std::string_view left = pending_;
    while (!left.empty() && !broken_ && waitForReader()) {
        // A ready pipe takes PIPE_BUF bytes without blocking, more might block where `stop` is not seen.
        const ssize_t written =
            ::write(descriptor_, left.data(), std::min<std::size_t>(left.size(), PIPE_BUF));
        if (written > 0) {
            left.remove_prefix(static_cast<std::size_t>(written));
        } else if (written < 0 && errno != EINTR && errno != EAGAIN) {
            giveUp(std::strerror(errno));
        }
    }
    pending_.clear();
}

bool Output::waitForReader() {
    pollfd ready{descriptor_, POLLOUT, 0};
    for (;;) {
        const int count = ::poll(&ready, 1, kWaitMs);
        if (count > 0) {
            return true;
        }
        const bool tooLong = count == 0 && stop_.load(std::memory_order_relaxed) && --patience_ <= 0;
        if (tooLong || (count < 0 && errno != EINTR)) {
            giveUp(tooLong ? "nobody reads" : std::strerror(errno));
            return false;
        }
    }
}

void Output::giveUp(const char *why) {
    broken_ = true;
    std::fprintf(stderr, "cannot write to the output (%s): nothing more is written there\n", why);
}

bool Output::isTerminal() const {
    return ::isatty(descriptor_) == 1;
}

} // namespace ps
