// Keeps the lock infrastructure of the agent: the life of the global lock that guards the lazy creation of
// all others, and a table of named locks. Started first and destroyed last of all managers.
#pragma once

#include "NamedObject.h"
#include "Relaxed.h"
#include "ZykHashTable.h"
#include "ZykLock.h"

class LockAgentMgr : public virtual NamedObject {
public:
    LockAgentMgr();
    ~LockAgentMgr() override;

    // Makes the singleton if it does not exist.
    static void create();
    // Deletes the singleton, then the global lock, whether or not there was a singleton.
    static void destroy();

    // Makes the global lock and the manager's own; false while the JVM interface is missing.
    bool initializeAfterJVMPI();

    void start();
    void stop();

private:
    void clear();

    ZykHashTable<char *, ZykLock *> locks; // owns keys and locks; guarded by `tableLock`
    ZykLock *tableLock = nullptr;
    ZykLock *classLock = nullptr;
};

extern Relaxed<LockAgentMgr *> lockAgentMgr;
