#include "LockAgentMgr.h"

#include "Inside.h"
#include "ProbeLgKit.h"

#include <cstdlib>
#include <new>

Relaxed<LockAgentMgr *> lockAgentMgr(nullptr);

LockAgentMgr::LockAgentMgr() : NamedObject("LockAgentMgr"), locks(11, true, false) {}

LockAgentMgr::~LockAgentMgr() {
    clear();
    delete tableLock;
    delete classLock;
}

void LockAgentMgr::create() {
    if (lockAgentMgr == nullptr) {
        lockAgentMgr = new (std::nothrow) LockAgentMgr();
    }
}

void LockAgentMgr::destroy() {
    retire(lockAgentMgr);
    ZykLock::destroyGlobalLock();
}

bool LockAgentMgr::initializeAfterJVMPI() {
    if (eventInterface == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MIN, "LockAgentMgr::initializeAfterJVMPI()",
                 "initializeAfterJVMPI was called before JVMPI was initialized");
        return false;
    }
    ZykLock::populateGlobalLock();
    tableLock = new (std::nothrow) ZykLock();
    classLock = new (std::nothrow) ZykLock();
    return tableLock != nullptr && classLock != nullptr;
}

void LockAgentMgr::start() {
    if (tableLock == nullptr) {
        initializeAfterJVMPI();
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "LockAgentMgr::start()", "LockAgentMgr started");
}

void LockAgentMgr::stop() {
    if (tableLock != nullptr) {
        const ZykLockGuard guard(*tableLock);
        clear();
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MIN, "LockAgentMgr::stop()", "LockAgentMgr stopped");
}

// Without the memory for that the table stays as it is.
void LockAgentMgr::clear() {
    char **names = locks.keys();
    ZykLock **values = locks.values();
    if (names != nullptr && values != nullptr) {
        locks.clear();
        for (char **name = names; *name != nullptr; ++name) {
            free(*name);
        }
        for (ZykLock **value = values; *value != nullptr; ++value) {
            delete *value;
        }
    }
    delete[] names;
    delete[] values;
}
