#include "ThreadMgr.h"

#include "Inside.h"
#include "MemoryMonitor.h"
#include "ProbeLgKit.h"
#include "ThreadData.h"
#include "jnihelp.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>

Relaxed<ThreadMgr *> threadMgr(nullptr);
Relaxed<ThreadMgr *> threadMgrInstance(nullptr);

namespace {

constexpr int TABLE_SIZE = 64;
constexpr char GET_THREAD_DATA[] = "ThreadMgr::getThreadData( JNIEnv *env )";

Relaxed<ThreadTaker *> threadTaker(nullptr);

// The last answer given to this thread. It holds while the generation stands: whatever takes a thread out of
// the table raises the generation afterwards, so an answer found before is never used again.
struct LastAnswer {
    JNIEnv *env;
    ThreadData *data;
    uint32_t generation;
};
thread_local LastAnswer lastAnswer{nullptr, nullptr, 0};
// Likewise the number of an environment.
struct LastNumber {
    JNIEnv *env;
    uint32_t id;
    uint32_t generation;
};
thread_local LastNumber lastNumber{nullptr, 0, 0};
std::atomic<uint32_t> generation{1};
std::mutex birthLock; // several natives may come first at once

void forgetAnswers() {
    generation.fetch_add(1, std::memory_order_relaxed);
}

} // namespace

// ---------------------------------------------------------------- life

ThreadMgr::ThreadMgr() : NamedObject("ThreadMgr"), threadTable(TABLE_SIZE, false, true) {}

void ThreadMgr::create() {
    const std::lock_guard<std::mutex> guard(birthLock);
    if (threadMgr == nullptr) {
        threadMgr = new (std::nothrow) ThreadMgr();
        threadMgrInstance = threadMgr.get();
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
    const std::unique_ptr<ThreadData *[]> snapshot(takeAll());
    if (awaitDeparture() && snapshot != nullptr) {
        const ZykLockGuard guard(threadLock);
        for (ThreadData **data = snapshot.get(); *data != nullptr; ++data) {
            delete *data;
        }
    }
    messageInfo(1073, "Thread Manager stopped");
}

// Takes every thread out of reach; whoever has one already is inside.
ThreadData **ThreadMgr::takeAll() {
    const ZykLockGuard guard(threadLock);
    started = false;
    ThreadData **all = threadTable.values();
    threadTable.clear();
    threadIdMap.clear();
    envNumbers.clear();
    forgetAnswers();
    return all;
}

// ---------------------------------------------------------------- lookup

ThreadData *ThreadMgr::getThreadData(JNIEnv *env) {
    LastAnswer &last = lastAnswer;
    const uint32_t now = generation.load(std::memory_order_relaxed);
    if (last.env == env && last.generation == now) {
        return last.data;
    }
    if (!canLookUp(env)) {
        return nullptr;
    }
    ThreadData *data = threadTable.get(env);
    data = data == nullptr ? createThreadData(env) : verified(data, env);
    if (data != nullptr) {
        last = {env, data, now};
    }
    return data;
}

ThreadData *ThreadMgr::findThreadData(JNIEnv *env) {
    ThreadData *data = canLookUp(env) ? threadTable.get(env) : nullptr;
    return data == nullptr ? nullptr : verified(data, env);
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

ThreadData *ThreadMgr::verified(ThreadData *data, JNIEnv *env) {
    if (data->envId == env) {
        return data;
    }
    AM_TRACE(
        ccTracer, LGK_DEBUG_MAX, GET_THREAD_DATA,
        "thr->getThreadId() != env, there is a problem with the internal hashtable implementation. Try it "
        "again");
    data = threadTable.get(env);
    if (data != nullptr && data->envId == env) {
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
    const auto equal = [](const std::atomic<char *> &name, const char *wanted) {
        const char *text = name.load(std::memory_order_acquire);
        return text != nullptr && strcmp(text, wanted) == 0;
    };
    const ZykLockGuard guard(threadLock);
    const std::unique_ptr<ThreadData *[]> snapshot(threadTable.values());
    for (ThreadData **data = snapshot.get(); data != nullptr && *data != nullptr; ++data) {
        if (equal((*data)->groupName, grpname) && equal((*data)->threadName, thrname)) {
            return *data;
        }
    }
    return nullptr;
}

int32_t ThreadMgr::getThreadCount() const {
    return started ? threadTable.entryCount() : 0;
}

// ---------------------------------------------------------------- birth

ThreadData *ThreadMgr::createThreadData(JNIEnv *env) {
    constexpr char SIGNATURE[] = "ThreadMgr::createThreadData( JNIEnv *env )";
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, SIGNATURE);
    ThreadTaker *taker = threadTaker;
    if (taker == nullptr || !taker->canTakeThreads()) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE, "EventMgr not ready, returning null");
        return nullptr;
    }
    if (jvmpiWrapper == nullptr) {
        return nullptr;
    }
    ThreadData *data = new (std::nothrow) ThreadData(env);
    if (data == nullptr) {
        return nullptr;
    }
    if (!enter(data)) {
        traceFailedInsertion(SIGNATURE, *data);
        discard(data);
        return nullptr;
    }
    if (!taker->manageThreadData(data)) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE, "Internal Error: EventManager could not manage Thread");
        discard(data);
        return nullptr;
    }
    return data;
}

// A thread that comes while the manager is being stopped would be overlooked by the stop: it is refused.
bool ThreadMgr::enter(ThreadData *data) {
    const ZykLockGuard guard(threadLock);
    if (!started || !threadTable.put(data->envId, data)) {
        return false;
    }
    data->threadId = getThreadId(data->envId);
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
    data = new (std::nothrow) ThreadData(env);
    if (data == nullptr) {
        return nullptr;
    }
    data->threadId = getThreadId(env);
    if (!threadTable.put(env, data)) {
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

// One that no agent has seen: it is not alive to the destructor, which would complain.
void ThreadMgr::discard(ThreadData *data) {
    const ZykLockGuard guard(threadLock);
    threadTable.remove(data->envId);
    eraseId(data->envId);
    forgetAnswers();
    data->isAlive = false;
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

// ---------------------------------------------------------------- numbers

// Refused calls come here each time: they must not meet at a lock.
uint32_t ThreadMgr::getThreadId(JNIEnv *env) {
    LastNumber &last = lastNumber;
    const uint32_t now = generation.load(std::memory_order_relaxed);
    if (last.env != env || last.generation != now) {
        last = {env, allocateId(env), now};
    }
    return last.id;
}

uint32_t ThreadMgr::allocateId(JNIEnv *env) {
    const ZykLockGuard guard(threadLock);
    const auto known = envNumbers.find(env);
    if (known != envNumbers.end()) {
        return known->second;
    }
    auto id = static_cast<uint32_t>(clock());
    for (auto taken = threadIdMap.find(id); taken != threadIdMap.end() && taken->second != nullptr;
         taken = threadIdMap.find(id)) {
        ++id;
    }
    threadIdMap[id] = env;
    envNumbers[env] = id;
    return id;
}

JNIEnv *ThreadMgr::getEnv(uint32_t threadId) {
    const ZykLockGuard guard(threadLock);
    const auto entry = threadIdMap.find(threadId);
    return entry != threadIdMap.end() ? entry->second : nullptr;
}

// For the holder of `threadLock`.
bool ThreadMgr::eraseId(JNIEnv *env) {
    const auto known = envNumbers.find(env);
    if (known == envNumbers.end()) {
        return false;
    }
    threadIdMap.erase(known->second);
    envNumbers.erase(known);
    return true;
}

// ---------------------------------------------------------------- natives

namespace {

enum ThreadStatus : jint {
    STATUS_RUNNING = 0,
    STATUS_ENDED = 5,
    STATUS_RESUMED = 0x2000,
    STATUS_SUSPENDED = 0x8000
};

// Calls `use` with the thread of that number, which cannot go away meanwhile; nothing if it is unknown.
template <typename Use>
void withThread(jint threadId, Use use) {
    ThreadMgr *manager = threadMgr;
    if (manager == nullptr) {
        return;
    }
    const ZykLockGuard guard(manager->destructionLock());
    ThreadData *data = manager->findThreadData(manager->getEnv(static_cast<uint32_t>(threadId)));
    if (data != nullptr) {
        use(*data);
    }
}

ThreadStatus statusOf(const ThreadData &data) {
    if (!data.acceptsEvents() || data.threadEndedFlag) {
        return STATUS_ENDED;
    }
    return data.threadSuspendedFlag ? STATUS_SUSPENDED : STATUS_RUNNING;
}

void applyStatus(ThreadData &data, jint status) {
    switch (status) {
    case STATUS_ENDED:
        data.threadEndedFlag = true;
        data.threadSuspendedFlag = false;
        break;
    case STATUS_RESUMED:
        data.threadSuspendedFlag = false;
        break;
    case STATUS_SUSPENDED:
        data.threadSuspendedFlag = true;
        break;
    default:
        break;
    }
}

uint32_t threadIdByName(char *group, char *thread) {
    ThreadMgr *manager = threadMgr;
    if (manager == nullptr) {
        return 0;
    }
    const ZykLockGuard guard(manager->destructionLock());
    const ThreadData *data = manager->getThreadData(group, thread);
    return data != nullptr ? data->threadId.get() : 0;
}

} // namespace

#define THREAD_MANAGER(name) Java_com_zykora_probe_ThreadManager_##name

extern "C" {

// A new string with the bytes that the agent holds by its own estimate; null before the memory monitor is up.
JNIEXPORT jstring JNICALL THREAD_MANAGER(getNativeProbeStatus)(JNIEnv *env, jclass) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "ThreadManager.getNativeProbeStatus()");
    const Inside inside;
    const MemoryMonitor *monitor = memoryMonitor;
    if (!inside || monitor == nullptr) {
        return nullptr;
    }
    char text[100];
    snprintf(text, sizeof(text), "Approximate Zykora Native Memory consumed(bytes): %ld \n",
             static_cast<long>(monitor->getMemoryTaken()));
    jstring result = env->NewStringUTF(text);
    clearException(env);
    return result;
}

// 5 for a thread that has ended, 32768 for a suspended one, else 0; 0 for an unknown number.
JNIEXPORT jint JNICALL THREAD_MANAGER(getNativeThreadStatus)(JNIEnv *, jclass, jint thread_id) {
    constexpr char SIGNATURE[] = "ThreadManager.getNativeThreadStatus( jint thread_id )";
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, SIGNATURE);
    jint status = STATUS_RUNNING;
    withThread(thread_id, [&](const ThreadData &data) { status = statusOf(data); });
    AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE, "Thread %d status is %d", thread_id, status);
    return status;
}

// Marks a living thread: 5 ended, 8192 no longer suspended, 32768 suspended. Other numbers change nothing.
JNIEXPORT void JNICALL THREAD_MANAGER(setThreadStatus)(JNIEnv *, jclass, jint thread_id, jint threadStatus) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID,
                   "ThreadManager.setThreadStatus( jint thread_id, jint threadStatus )");
    withThread(thread_id, [&](ThreadData &data) {
        if (data.acceptsEvents()) {
            applyStatus(data, threadStatus);
        }
    });
}

// Makes the thread manager if it does not exist.
JNIEXPORT void JNICALL Java_com_qel_morvex_norak_toolkit_ai_management_Base_startNativeThreadManager(JNIEnv *,
                                                                                                     jclass) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MIN, "Base.startNativeThreadManager()");
    ThreadMgr::create();
}

// The number of the thread with these names; 0 if there is none. A null name matches an empty one.
JNIEXPORT jint JNICALL Java_com_zykora_command_CommandAgent_getThreadId(JNIEnv *env, jclass,
                                                                        jstring j_thread_name,
                                                                        jstring j_group_name) {
    constexpr char SIGNATURE[] = "CommandAgent.getThreadId( jstring j_thread_name, jstring j_group_name )";
    AM_TRACE_SCOPE(caTracer, LGK_DEBUG_MID, SIGNATURE);
    char *thread = jniStringCopy(env, j_thread_name);
    char *group = jniStringCopy(env, j_group_name);
    const uint32_t id = threadIdByName(group, thread);
    free(thread);
    free(group);
    AM_TRACE(caTracer, LGK_DEBUG_MID, SIGNATURE, "The thread ID is: %d", id);
    return static_cast<jint>(id);
}

} // extern "C"
