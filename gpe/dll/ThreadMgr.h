// Maps a thread's JNI environment to its `ThreadData`, made on the thread's first event, and gives every
// thread a small number. Any thread may call. The hit path is a thread-local word and one comparison; a miss
// takes one bucket lock. A `ThreadData` belongs to the event agent that lists it; it is destroyed under
// `threadLock` only, so whoever holds that lock may look at any thread that is in the table.
#pragma once

#include "NamedObject.h"
#include "Relaxed.h"
#include "ZykHashTable.h"
#include "ZykLock.h"

#include <cstdint>
#include <jni.h>
#include <map>
#include <unordered_map>

class ThreadData;

// Whoever drains the queues: new threads are handed to it.
class ThreadTaker {
public:
    virtual bool canTakeThreads() = 0;
    virtual bool manageThreadData(ThreadData *thr) = 0; // false: not taken, the caller keeps it

protected:
    ~ThreadTaker() = default;
};

class ThreadMgr : public virtual NamedObject {
public:
    // The singleton: made once, lives until the process ends.
    static void create();
    static void destroy();

    // Who takes new threads; null while there is nobody, and then no `ThreadData` is made. Not owned.
    static void setThreadTaker(ThreadTaker *taker);

    void start();
    // Destroys every `ThreadData` of the table, once no thread is inside that may hold one; if one does not
    // come out they stay in memory. The event agents must have ended before.
    void stop();
    bool isStarted() const { return started; }

    // The calling thread's data, made if needed; null while stopped, for a null `env`, before the pump runs
    // and when memory is out.
    ThreadData *getThreadData(JNIEnv *env);
    // The first thread with these names, exactly; null if there is none or an argument is null.
    ThreadData *getThreadData(char *grpname, char *thrname);
    // As the first, but makes nothing.
    ThreadData *findThreadData(JNIEnv *env);

    ThreadData *createThreadData(JNIEnv *env);
    // An event agent's own queue, for events without a thread: the caller lists it itself. Null on failure.
    ThreadData *createSpecialEventQueue(JNIEnv *env);
    // True if it was destroyed.
    bool deleteThreadData(ThreadData *data);
    // Forgets the environment, whose value the JVM may give to the next thread. False if it was unknown.
    bool updateOnThreadEnd(JNIEnv *tid);

    int32_t getThreadCount() const; // 0 while stopped

    // Number of an environment, allocated if it has none, and the way back: null if unknown.
    uint32_t getThreadId(JNIEnv *env);
    JNIEnv *getEnv(uint32_t threadId);

    // Held while looking at threads that are not the caller's own.
    ZykLock &destructionLock() { return threadLock; }

private:
    ThreadMgr();

    bool canLookUp(JNIEnv *env) const;
    ThreadData *verified(ThreadData *data, JNIEnv *env);
    bool enter(ThreadData *data);
    void discard(ThreadData *data);
    ThreadData **takeAll();
    static void traceFailedInsertion(const char *signature, const ThreadData &data);
    uint32_t allocateId(JNIEnv *env);
    bool eraseId(JNIEnv *env);

    ZykHashTable<JNIEnv *, ThreadData *> threadTable;
    std::map<uint32_t, JNIEnv *> threadIdMap; // guarded by `threadLock`, as is its inverse
    std::unordered_map<JNIEnv *, uint32_t> envNumbers;
    Relaxed<bool> started{false};
    ZykLock startLock;  // taken once, so that the JVM has made its first raw monitor before threads race
    ZykLock threadLock; // the id map, changes of both maps together, and the destruction of a `ThreadData`
};

// The one instance, null until made. Both always hold the same value.
extern Relaxed<ThreadMgr *> threadMgr;
extern Relaxed<ThreadMgr *> threadMgrInstance;
