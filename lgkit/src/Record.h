// One finished line on its way from the caller to the files. Owned by whoever holds it: caller, queue,
// worker.
#pragma once

#include "LgkObject.h"

#include <chrono>

namespace lgkit {

constexpr int errorLevel = 6000; // flushed at once, sets off first-failure handlers

struct Record {
    LgkObject *logger = nullptr; // null for a drain marker
    int level = 0;
    size_t thread = 0; // the operating system's id of the caller
    std::chrono::system_clock::time_point time{};
    std::string text;
    unsigned drainTicket = 0;
};

} // namespace lgkit
