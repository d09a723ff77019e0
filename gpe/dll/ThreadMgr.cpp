#include "ThreadMgr.h"

#include "Inside.h"
#include "PlainLock.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "VirtualThreads.h"
#include "jnihelp.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <new>
#include <utility>

Relaxed<ThreadMgr *> threadMgr(nullptr);
Relaxed<ThreadMgr *> threadMgrInstance(nullptr);

namespace {

constexpr int TABLE_SIZE = 64;
constexpr char GET_THREAD_DATA[] = "ThreadMgr::getThreadData( JNIEnv *env )";

Relaxed<ThreadTaker *> threadTaker(nullptr);

constexpr char VIRTUAL_GROUP[] = "VirtualThreads";

// The last answer given on this thread, by the caller's key: what is known is not 0. It holds while the
// generation stands: whatever takes a thread out of the table raises the generation afterwards, so an answer
// found before is never used again. A virtual key tells that this thread carries virtual ones.
struct LastAnswer {
    JNIEnv *key;
    ThreadData *data;
    uint32_t generation;
    uint32_t number;
};
thread_local LastAnswer lastAnswer{nullptr, nullptr, 0, 0};

// Virtual threads come and go by the thousand and have a generation of their own, raised once a sweep.
std::atomic<uint32_t> generation{1};
std::atomic<uint32_t> virtualGeneration{1};
PlainLock birthLock; // several natives may come first at once

void forgetAnswers() {
    generation.fetch_add(1, std::memory_order_relaxed);
}

void forgetVirtualAnswers() {
    virtualGeneration.fetch_add(1, std::memory_order_relaxed);
}

// A thread that was seen as a platform thread stays one: only on the others the JVM is asked.
Caller callerOf(JNIEnv *env) {
    const JNIEnv *known = lastAnswer.key;
    return known == env ? Caller{env, true} : callerOn(env, isVirtualKey(known) ? known : nullptr);
}

// The last answer, if it is about that caller and still holds; else it is about nobody now.
LastAnswer &answerFor(const Caller &caller) {
    LastAnswer &last = lastAnswer;
    const uint32_t now =
        (isVirtualKey(caller.key) ? virtualGeneration : generation).load(std::memory_order_relaxed);
    if (last.key != caller.key || last.generation != now) {
        last = {caller.key, nullptr, now, 0};
    }
    return last;
}

} // namespace

// ---------------------------------------------------------------- life

ThreadMgr::ThreadMgr()
    : NamedObject("ThreadMgr"), threadTable(TABLE_SIZE, false, true), threadIdMap(TABLE_SIZE, false, false),
      envNumbers(TABLE_SIZE, false, false) {}

void ThreadMgr::create() {
    const std::lock_guard<PlainLock> guard(birthLock);
    if (threadMgr == nullptr) {
        threadMgr = new (std::nothrow) ThreadMgr();
        threadMgrInstance = threadMgr.get();
        threadKeeper = threadMgr.get();
    }
}

void ThreadMgr::destroy() {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "ThreadMgr::destroy()");
}

void ThreadMgr::setThreadTaker(ThreadTaker *taker) {
    threadTaker = taker;
}

void ThreadMgr::start() {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "ThreadMgr::start()");
    { const ZykLockGuard guard(startLock); }
    threadTable.prepareLocks();
    started = true;
    messageInfo(1072, "Thread Manager started");
}

void ThreadMgr::stop() {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "ThreadMgr::stop()");
    ThreadData *all = takeAll();
    if (awaitDeparture()) {
        const ZykLockGuard guard(threadLock);
        while (all != nullptr) {
            ThreadData *data = all;
            all = data->nextWatched;
            delete data;
        }
    }
    messageInfo(1073, "Thread Manager stopped");
}

// Takes every thread out of reach; whoever has one already is inside. The result is chained as the watched
// are.
ThreadData *ThreadMgr::takeAll() {
    const ZykLockGuard sweep(sweepLock);
    const ZykLockGuard guard(threadLock);
    started = false;
    ThreadData *all = std::exchange(watched, nullptr);
    const auto chain = [&all](ThreadData *data) { data->nextWatched = std::exchange(all, data); };
    while (ThreadData *data = leftOver) {
        leftOver = data->nextWatched;
        chain(data);
    }
    threadTable.forEach(chain);
    threadTable.clear();
    virtualTable.clear();
    threadIdMap.clear();
    envNumbers.clear();
    forgetAnswers();
    forgetVirtualAnswers();
    return all;
}

// ---------------------------------------------------------------- lookup

ThreadData *ThreadMgr::getThreadData(JNIEnv *env) {
    const LastAnswer &last = lastAnswer;
    if (last.key == env && last.generation == generation.load(std::memory_order_relaxed) &&
        last.data != nullptr) {
        return last.data;
    }
    return canLookUp(env) ? lookUp(env) : nullptr;
}

ThreadData *ThreadMgr::lookUp(JNIEnv *env) {
    const Caller caller = callerOf(env);
    if (!caller.stays) { // a carrier on its own account
        ThreadData *data = findThreadData(env);
        return data != nullptr ? data : createThreadData(env, env);
    }
    LastAnswer &last = answerFor(caller);
    if (last.data != nullptr) {
        return last.data;
    }
    const uint32_t asOf = last.generation;
    ThreadData *data = findThreadData(caller.key);
    if (data == nullptr) {
        data = createThreadData(env, caller.key);
    }
    if (data != nullptr) {
        last = {caller.key, data, asOf, data->threadId};
    }
    return data;
}

ThreadData *ThreadMgr::findThreadData(JNIEnv *key) {
    if (!canLookUp(key)) {
        return nullptr;
    }
    if (isVirtualKey(key)) {
        return virtualTable.get(key);
    }
    ThreadData *data = threadTable.get(key);
    return data == nullptr ? nullptr : verified(data, key);
}

bool ThreadMgr::canLookUp(JNIEnv *env) const {
    if (!started) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, GET_THREAD_DATA, "ThreadMgr not started, returning null");
        return false;
    }
    if (env == nullptr) {
        AM_TRACE(ccTracer, LGK_DEBUG_MAX, GET_THREAD_DATA, "NULL Env id");
        return false;
    }
    return true;
}

ThreadData *ThreadMgr::verified(ThreadData *data, JNIEnv *key) {
    if (data->envId == key) {
        return data;
    }
    AM_TRACE(
        ccTracer, LGK_DEBUG_MAX, GET_THREAD_DATA,
        "thr->getThreadId() != env, there is a problem with the internal hashtable implementation. Try it "
        "again");
    data = threadTable.get(key);
    if (data != nullptr && data->envId == key) {
        return data;
    }
    AM_TRACE(ccTracer, LGK_DEBUG_MAX, GET_THREAD_DATA,
             "Second try also failed, getThreadData will return NULL");
    return nullptr;
}

ThreadData *ThreadMgr::getThreadData(char *grpname, char *thrname) {
    if (grpname == nullptr || thrname == nullptr || !started) {
        return nullptr;
    }
    const auto matches = [grpname, thrname](const ThreadData &data) {
        const char *group = isVirtualKey(data.envId) ? VIRTUAL_GROUP : data.groupName.load();
        const char *name = data.threadName.load(std::memory_order_acquire);
        return group != nullptr && name != nullptr && strcmp(group, grpname) == 0 &&
               strcmp(name, thrname) == 0;
    };
    ThreadData *found = nullptr;
    const ZykLockGuard guard(threadLock);
    threadTable.forEach([&](ThreadData *data) {
        if (found == nullptr && matches(*data)) {
            found = data;
        }
    });
    for (ThreadData *data = watched; data != nullptr && found == nullptr; data = data->nextWatched) {
        if (matches(*data)) {
            found = data;
        }
    }
    return found;
}

int32_t ThreadMgr::getThreadCount() const {
    return started ? threadTable.entryCount() + virtualTable.entryCount() : 0;
}

// ---------------------------------------------------------------- birth

namespace {

// Whole, with its queue, or null when memory is out.
ThreadData *newThreadData(JNIEnv *key) {
    auto *data = new (std::nothrow) ThreadData(key);
    if (data != nullptr && data->eventQueue == nullptr) {
        data->endUnseen(); // the destructor would complain
        delete data;
        return nullptr;
    }
    return data;
}

// On the virtual thread whose record it is; false if memory is out.
bool describe(JNIEnv *env, ThreadData &data) {
    const VirtualThread thread = describeVirtual(env);
    data.virtualThread = thread.reference;
    data.threadName.store(thread.name, std::memory_order_release);
    return thread.reference != nullptr;
}

} // namespace

ThreadData *ThreadMgr::createThreadData(JNIEnv *env, JNIEnv *key) {
    constexpr char SIGNATURE[] = "ThreadMgr::createThreadData( JNIEnv *env )";
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, SIGNATURE);
    ThreadTaker *taker = threadTaker;
    if (taker == nullptr || !taker->canTakeThreads()) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE, "EventMgr not ready, returning null");
        return nullptr;
    }
    if (jvmpiWrapper == nullptr || (isVirtualKey(key) && notAccepting)) {
        return nullptr;
    }
    ThreadData *data = newThreadData(key);
    if (data == nullptr) {
        return nullptr;
    }
    if ((isVirtualKey(key) && !describe(env, *data)) || !enter(data)) {
        traceFailedInsertion(SIGNATURE, *data);
        data->endUnseen(); // no agent has seen it: the destructor would complain
        delete data;
        return nullptr;
    }
    if (!handOver(data, *taker)) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE, "Internal Error: EventManager could not manage Thread");
        return nullptr;
    }
    if (isVirtualKey(key)) {
        data->chargeRecord();
    }
    return data;
}

// Under the lock: an agent that starts just now looks for threads that nobody has.
bool ThreadMgr::handOver(ThreadData *data, ThreadTaker &taker) {
    const ZykLockGuard guard(threadLock);
    if (taker.manageThreadData(data)) {
        return true;
    }
    discard(data);
    return false;
}

// A thread that comes while the manager is being stopped would be overlooked by the stop: it is refused.
bool ThreadMgr::enter(ThreadData *data) {
    const ZykLockGuard guard(threadLock);
    if (!started) {
        return false;
    }
    data->threadId = allocateId(data->envId);
    if (data->threadId == 0) {
        return false;
    }
    if (isVirtualKey(data->envId)) {
        virtualTable.put(data);
        data->nextWatched = watched;
        watched = data;
        return true;
    }
    if (!threadTable.put(data->envId, data)) {
        eraseId(data->envId);
        return false;
    }
    return true;
}

// An agent may start before this manager does, so `started` does not count here.
ThreadData *ThreadMgr::createSpecialEventQueue(JNIEnv *env) {
    constexpr char SIGNATURE[] = "ThreadMgr::createSpecialEventQueue( JNIEnv *env )";
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, SIGNATURE);
    if (env == nullptr) {
        return nullptr;
    }
    const ZykLockGuard guard(threadLock);
    ThreadData *data = threadTable.get(env);
    if (data != nullptr) {
        return data;
    }
    data = newThreadData(env);
    if (data == nullptr) {
        return nullptr;
    }
    data->threadId = allocateId(env);
    if (data->threadId == 0 || !threadTable.put(env, data)) {
        traceFailedInsertion(SIGNATURE, *data);
        discard(data);
        return nullptr;
    }
    return data;
}

void ThreadMgr::traceFailedInsertion(const char *signature, const ThreadData &data) {
    AM_TRACE(ccTracer, LGK_DEBUG_MID, signature,
             "Insertion into Hashtable failed (JNI based) for Thread with ID: %d", data.threadId.get());
}

// ---------------------------------------------------------------- end

// One that no agent has seen: it is not alive to the destructor, which would complain. A sweep may just be at
// that of a virtual thread, and destroys it.
void ThreadMgr::discard(ThreadData *data) {
    const ZykLockGuard guard(threadLock);
    if (isVirtualKey(data->envId)) {
        virtualTable.remove(data->envId);
        data->endUnseen();
        return;
    }
    threadTable.remove(data->envId);
    eraseId(data->envId);
    forgetAnswers();
    data->endUnseen();
    delete data;
}

bool ThreadMgr::deleteThreadData(ThreadData *data) {
    constexpr char SIGNATURE[] = "ThreadMgr::deleteThreadData( ThreadData *data )";
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, SIGNATURE);
    if (!started) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE, "ThreadMgr not started, returning false");
        return false;
    }
    if (data == nullptr) {
        return false;
    }
    const ZykLockGuard guard(threadLock);
    delete data;
    return true;
}

bool ThreadMgr::updateOnThreadEnd(JNIEnv *tid) {
    constexpr char SIGNATURE[] = "ThreadMgr::updateOnThreadEnd( JNIEnv *tid )";
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, SIGNATURE);
    if (isVirtualKey(tid)) {
        return virtualTable.remove(tid);
    }
    bool removed = false;
    bool erased = false;
    {
        const ZykLockGuard guard(threadLock);
        removed = threadTable.remove(tid);
        erased = eraseId(tid);
        forgetAnswers();
    }
    if (!erased) {
        error(__FILE_NAME__, __LINE__, "__KSYS0/ix64 removeThreadData error!");
    }
    if (!removed) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE, "ThreadData was not there in table, TID: %d", 0);
    }
    return removed;
}

void ThreadMgr::endThread(JNIEnv *env) {
    const ZykLockGuard guard(threadLock);
    ThreadData *data = findThreadData(env);
    if (data != nullptr) {
        endRecord(data);
    } else if (eraseId(env)) {
        forgetAnswers();
    }
}

// Under the lock, so that no agent takes it over or destroys it meanwhile. One that no agent lists may still
// be held by somebody who appends to it as to the special queue.
void ThreadMgr::endRecord(ThreadData *data) {
    const ZykLockGuard guard(threadLock);
    const bool listed = data->listed;
    data->resetOnThreadEnd();
    if (!listed) {
        data->nextWatched = std::exchange(leftOver, data);
    }
}

// The walk takes no lock: others only put new records in front, and none goes away but here and in the stop.
void ThreadMgr::endFinishedVirtualThreads(JNIEnv *env) {
    const ZykLockGuard sweep(sweepLock);
    ThreadData **link = &watched;
    ThreadData *next = firstWatched();
    bool anyEnded = false;
    while (ThreadData *data = next) {
        next = data->nextWatched;
        if (!data->acceptsEvents()) { // nobody had taken it
            unwatch(link, data);
            deleteThreadData(data);
        } else if (!isVirtualAlive(env, data->virtualThread)) {
            unwatch(link, data);
            endRecord(data);
            anyEnded = true;
        } else {
            link = &data->nextWatched;
        }
    }
    if (anyEnded) {
        forgetVirtualAnswers();
    }
}

ThreadData *ThreadMgr::firstWatched() {
    const ZykLockGuard guard(threadLock);
    return watched;
}

// The link led to the record, or to those that came before it since.
void ThreadMgr::unwatch(ThreadData **&link, const ThreadData *data) {
    const ZykLockGuard guard(threadLock);
    while (*link != data) {
        link = &(*link)->nextWatched;
    }
    *link = data->nextWatched;
}

// ---------------------------------------------------------------- numbers

// Refused calls come here each time: they must not meet at a lock.
uint32_t ThreadMgr::getThreadId(JNIEnv *env) {
    const LastAnswer &known = lastAnswer;
    if (known.key == env && known.generation == generation.load(std::memory_order_relaxed) &&
        known.number != 0) {
        return known.number;
    }
    return lookUpId(env);
}

uint32_t ThreadMgr::lookUpId(JNIEnv *env) {
    const Caller caller = callerOf(env);
    if (!caller.stays || caller.key == nullptr) {
        return allocateId(caller.key);
    }
    LastAnswer &last = answerFor(caller);
    if (last.number == 0) {
        last.number = allocateId(caller.key);
    }
    return last.number;
}

uint32_t ThreadMgr::allocateId(JNIEnv *key) {
    if (isVirtualKey(key)) {
        return numberOfVirtual(key);
    }
    const ZykLockGuard guard(threadLock);
    uint32_t id = envNumbers.get(key);
    if (id != 0) {
        return id;
    }
    id = static_cast<uint32_t>(clock());
    do {
        id = std::max((id + 1) % FIRST_VIRTUAL_NUMBER, 1U);
    } while (threadIdMap.get(id) != nullptr);
    if (!threadIdMap.put(id, key)) {
        return 0;
    }
    if (!envNumbers.put(key, id)) {
        threadIdMap.remove(id);
        return 0;
    }
    return id;
}

JNIEnv *ThreadMgr::getEnv(uint32_t threadId) {
    if (threadId >= FIRST_VIRTUAL_NUMBER) {
        return virtualTable.keyOf(threadId);
    }
    const ZykLockGuard guard(threadLock);
    return threadId != 0 ? threadIdMap.get(threadId) : nullptr;
}

// For the holder of `threadLock`.
bool ThreadMgr::eraseId(JNIEnv *env) {
    const uint32_t id = envNumbers.get(env);
    return id != 0 && threadIdMap.remove(id) && envNumbers.remove(env);
}
