#include "ZykOsLock.h"

#include "ProbeLgKit.h"

#include <cerrno>
#include <ctime>
#include <new>

namespace {

constexpr time_t WAIT_TURN_SECONDS = 10;

// Guards the lazy creation of all others; static initialisers of other files may need it.
pthread_mutex_t osGlobalLock = PTHREAD_MUTEX_INITIALIZER;

pthread_mutex_t *makeMutex() {
    constexpr pthread_mutex_t reentrant = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
    return new (std::nothrow) pthread_mutex_t(reentrant);
}

} // namespace

ZykOsLock::ZykOsLock(bool createOnCreation) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "ZykOsLock::ZykOsLock()");
    if (createOnCreation) {
        mutex = makeMutex();
    }
}

ZykOsLock::~ZykOsLock() {
    if (mutex != nullptr) {
        pthread_mutex_destroy(mutex);
    }
    delete mutex;
}

bool ZykOsLock::ensureCreated() {
    pthread_mutex_lock(&osGlobalLock);
    if (mutex == nullptr) {
        mutex = makeMutex();
    }
    const bool made = mutex != nullptr;
    pthread_mutex_unlock(&osGlobalLock);
    return made;
}

bool ZykOsLock::lock() {
    if (mutex == nullptr) {
        return false;
    }
    // The wall clock, since the thread sanitiser does not know the wait by the other one; a jump of the clock
    // makes a turn longer or shorter, nothing else.
    int result = 0;
    do {
        timespec until{};
        clock_gettime(CLOCK_REALTIME, &until);
        until.tv_sec += WAIT_TURN_SECONDS;
        result = pthread_mutex_timedlock(mutex, &until);
    } while (result == ETIMEDOUT);
    return result == 0;
}

bool ZykOsLock::unlock() {
    if (mutex == nullptr) {
        return false;
    }
    pthread_mutex_unlock(mutex);
    return true;
}
