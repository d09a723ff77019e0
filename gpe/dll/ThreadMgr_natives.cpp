// Natives that ask for threads and mark them: of ThreadManager, Base and CommandAgent.
#include "NativeGate.h"
#include "ProbeLgKit.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "jnihelp.h"

#include <cstdlib>

#define THREAD_MANAGER(name) Java_com_zykora_probe_ThreadManager_##name

namespace {

enum ThreadStatus : jint {
    STATUS_RUNNING = 0,
    STATUS_ENDED = 5,
    STATUS_RESUMED = 0x2000,
    STATUS_SUSPENDED = 0x8000
};

// What `use` answers of the thread with that number, which cannot go away meanwhile; `refusal` if it is
// unknown.
template <typename Answer, typename Use>
Answer withThread(jint threadId, Answer refusal, Use use) {
    return native::with(threadMgr, refusal, [&](ThreadMgr &manager) {
        const ZykLockGuard guard(manager.destructionLock());
        ThreadData *data = manager.findThreadData(manager.getEnv(static_cast<uint32_t>(threadId)));
        return data != nullptr ? use(*data) : refusal;
    });
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

jint threadIdByName(char *group, char *thread) {
    return native::with(threadMgr, 0, [=](ThreadMgr &manager) {
        const ZykLockGuard guard(manager.destructionLock());
        const ThreadData *data = manager.getThreadData(group, thread);
        return data != nullptr ? static_cast<jint>(data->threadId.get()) : 0;
    });
}

} // namespace

extern "C" {

// 5 for a thread that has ended, 32768 for a suspended one, else 0; 0 for an unknown number.
JNIEXPORT jint JNICALL THREAD_MANAGER(getNativeThreadStatus)(JNIEnv *, jclass, jint thread_id) {
    constexpr char SIGNATURE[] = "ThreadManager.getNativeThreadStatus( jint thread_id )";
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, SIGNATURE);
    const ThreadStatus status = withThread(thread_id, STATUS_RUNNING, statusOf);
    AM_TRACE(ccTracer, LGK_DEBUG_MID, SIGNATURE, "Thread %d status is %d", thread_id, status);
    return status;
}

// Marks a living thread: 5 ended, 8192 no longer suspended, 32768 suspended. Other numbers change nothing.
JNIEXPORT void JNICALL THREAD_MANAGER(setThreadStatus)(JNIEnv *, jclass, jint thread_id, jint threadStatus) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID,
                   "ThreadManager.setThreadStatus( jint thread_id, jint threadStatus )");
    withThread(thread_id, false, [=](ThreadData &data) {
        if (data.acceptsEvents()) {
            applyStatus(data, threadStatus);
        }
        return true;
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
    const jint id = threadIdByName(group, thread);
    free(thread);
    free(group);
    AM_TRACE(caTracer, LGK_DEBUG_MID, SIGNATURE, "The thread ID is: %d", id);
    return id;
}

} // extern "C"
