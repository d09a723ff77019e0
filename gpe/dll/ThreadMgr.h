// Maps a thread's JNI environment to its `ThreadData`, made on the thread's first event, and gives every
// thread a small number. Any thread may call. The hit path is a thread-local word and one comparison; a miss
// takes one bucket lock. A `ThreadData` belongs to the event agent that lists it; once in the table it
// is destroyed under `threadLock` only, so whoever holds that lock may look at any thread there.
// Natives pass the environment they were called with; a virtual thread is told from its carrier here, and is
// known by a key of its own wherever an environment stands for a thread.
#pragma once

#include "NamedObject.h"
#include "Relaxed.h"
#include "ThreadData.h"
#include "VirtualThreadTable.h"
#include "ZykHashTable.h"
#include "ZykLock.h"

#include <cstdint>
#include <jni.h>

// Whoever drains the queues: new threads are handed to it.
class ThreadTaker {
public:
    virtual bool canTakeThreads() = 0;
    // Called with the thread manager's lock held. False: not taken, the caller keeps it.
    virtual bool manageThreadData(ThreadData *thr) = 0;

protected:
    ~ThreadTaker() = default;
};

class ThreadMgr : public virtual NamedObject, public ThreadKeeper {
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
    bool isStarted() const override { return started; }

    // The calling thread's data, made if needed; null while stopped, for a null `env`, before the pump runs
    // and when memory is out. New virtual threads get none while the memory limit is reached.
    ThreadData *getThreadData(JNIEnv *env);
    // The first thread with these names, exactly; null if there is none or an argument is null.
    ThreadData *getThreadData(char *grpname, char *thrname);
    // Of any thread by its key; makes nothing.
    ThreadData *findThreadData(JNIEnv *key);

    // An event agent's own queue, for events without a thread: the caller lists it itself. Null on failure.
    ThreadData *createSpecialEventQueue(JNIEnv *env);
    // The end of a platform thread, on that thread: its number is forgotten, its record is told. The event
    // agent that has it destroys it, or, if none has, the next stop.
    void endThread(JNIEnv *env);
    // Calls `visit(data)` for each thread that has not ended.
    template <typename Visit>
    void forEachThread(Visit visit) {
        const ZykLockGuard guard(threadLock);
        threadTable.forEach(visit);
        for (ThreadData *data = watched; data != nullptr; data = data->nextWatched) {
            visit(data);
        }
    }
    // True if it was destroyed.
    bool deleteThreadData(ThreadData *data);
    bool updateOnThreadEnd(JNIEnv *tid) override;
    // Virtual threads end without a word: tells the records of those that have. For one Java thread, from
    // time to time.
    void endFinishedVirtualThreads(JNIEnv *env);

    int32_t getThreadCount() const; // 0 while stopped

    // The calling thread's number, allocated if it has none; 0 when memory is out.
    uint32_t getThreadId(JNIEnv *env);
    // The way back, to the thread's key: null if unknown.
    JNIEnv *getEnv(uint32_t threadId);

    // Held while looking at threads that are not the caller's own.
    ZykLock &destructionLock() { return threadLock; }

private:
    ThreadMgr();

    bool canLookUp(JNIEnv *env) const;
    ThreadData *lookUp(JNIEnv *env);
    uint32_t lookUpId(JNIEnv *env);
    ThreadData *createThreadData(JNIEnv *env, JNIEnv *key);
    ThreadData *verified(ThreadData *data, JNIEnv *key);
    bool enter(ThreadData *data);
    bool handOver(ThreadData *data, ThreadTaker &taker);
    void discard(ThreadData *data);
    ThreadData *takeAll();
    static void traceFailedInsertion(const char *signature, const ThreadData &data);
    uint32_t allocateId(JNIEnv *key);
    bool eraseId(JNIEnv *env);
    ThreadData *firstWatched();
    void endRecord(ThreadData *data);
    void unwatch(ThreadData **&link, const ThreadData *data);

    // Guard themselves, each key by a lock of its bucket. What has to agree with the maps is changed under
    // `threadLock`.
    ZykHashTable<JNIEnv *, ThreadData *> threadTable;
    VirtualThreadTable virtualTable;

    // Guarded by `threadLock`, as is the destruction of a `ThreadData`.
    ZykLock threadLock;
    ZykHashTable<uint32_t, JNIEnv *> threadIdMap; // of platform threads
    ZykHashTable<JNIEnv *, uint32_t> envNumbers;  // its inverse
    ThreadData *leftOver =
        nullptr;                   // ended, in no agent's list, for the next stop; chained as the watched are
    ThreadData *watched = nullptr; // virtual threads not known to have ended, newest first

    ZykLock sweepLock; // held while `watched` is walked and records are taken out of it; before `threadLock`
    ZykLock startLock; // taken once, so that the JVM has made its first raw monitor before threads race

    Relaxed<bool> started{false}; // by start and stop, under the latter's locks
};

// The one instance, null until made. Both always hold the same value.
extern Relaxed<ThreadMgr *> threadMgr;
extern Relaxed<ThreadMgr *> threadMgrInstance;
