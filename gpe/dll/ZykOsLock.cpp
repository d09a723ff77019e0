#include "ZykOsLock.h"

#include "ProbeLgKit.h"

#include <chrono>
#include <new>

namespace {

constexpr std::chrono::milliseconds WAIT_TURN(10000);

// Guards the lazy creation of all others. Built on first use: static initialisers of other files need it.
std::recursive_timed_mutex &osGlobalLock() {
    static std::recursive_timed_mutex lock;
    return lock;
}

} // namespace

ZykOsLock::ZykOsLock(bool createOnCreation) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "ZykOsLock::ZykOsLock()");
    if (createOnCreation) {
        mutex = new (std::nothrow) std::recursive_timed_mutex;
    }
}

ZykOsLock::~ZykOsLock() {
    delete mutex;
}

bool ZykOsLock::ensureCreated() {
    const std::lock_guard<std::recursive_timed_mutex> guard(osGlobalLock());
    if (mutex == nullptr) {
        mutex = new (std::nothrow) std::recursive_timed_mutex;
    }
    return mutex != nullptr;
}

bool ZykOsLock::lock() {
    if (mutex == nullptr) {
        return false;
    }
    // The wall clock, since the thread sanitiser does not know the wait by the other one; a jump of the clock
    // makes a turn longer or shorter, nothing else.
    while (!mutex->try_lock_until(std::chrono::system_clock::now() + WAIT_TURN)) {
    }
    return true;
}

bool ZykOsLock::unlock() {
    if (mutex == nullptr) {
        return false;
    }
    mutex->unlock();
    return true;
}
