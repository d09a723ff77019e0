#include "platform.h"

#include <cerrno>
#include <ctime>
#include <unistd.h>

namespace {
constexpr int BuildPlatform_LINUX = 2;
} // namespace

void getCurrentTime(uint32_t *sec, uint32_t *usec) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *sec = static_cast<uint32_t>(now.tv_sec);
    *usec = static_cast<uint32_t>(now.tv_nsec / 1000000) * 1000;
}

int64_t monotonicMicros() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000000 + now.tv_nsec / 1000;
}

void thread_sleep(int ms) {
    if (ms <= 0) {
        return;
    }
    timespec rest{ms / 1000, (ms % 1000) * 1000000L};
    while (nanosleep(&rest, &rest) == -1 && errno == EINTR) {
    }
}

int getProcessId() {
    return static_cast<int>(getpid());
}

int getPlatformId() {
    return BuildPlatform_LINUX;
}
