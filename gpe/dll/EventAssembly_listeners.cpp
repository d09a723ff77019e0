// The way of a finished event into its thread's queue, past the Java listeners.
#include "EventAssembly.h"

#include "Inside.h"
#include "LossAccount.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"

#include <atomic>
#include <new>

using namespace assembly;

namespace {

// Set once, for the process's life.
struct NotifyTarget {
    jclass cls; // global
    jmethodID method;
};

Relaxed<bool> notificationOn(false);
Relaxed<int32_t> listenerCount(0);
std::atomic<const NotifyTarget *> notifyTarget{nullptr};
thread_local bool asking = false; // what a listener does in monitored code is recorded without a question

const NotifyTarget *targetToAsk() {
    const bool wanted = notificationOn && !asking && listenerCount >= 1;
    return wanted ? notifyTarget.load(std::memory_order_acquire) : nullptr;
}

// An exception of a listener counts as its consent. It may take its time: nobody waits for it.
bool listenersAgree(JNIEnv *env, const NotifyTarget &target, const Event &event) {
    asking = true;
    const Outside asked;
    const jboolean answer =
        env->CallStaticBooleanMethod(target.cls, target.method, static_cast<jint>(event.type));
    asking = false;
    return clearException(env) || answer == JNI_TRUE;
}

} // namespace

bool assembly::askListeners(JNIEnv *env, const Event &event, bool &recordStands) {
    recordStands = true;
    const NotifyTarget *target = targetToAsk();
    if (target == nullptr) {
        return true;
    }
    const ThreadData *before = callingThread(env);
    const bool agreed = listenersAgree(env, *target, event);
    recordStands = !probeDisabled && callingThread(env) == before;
    if (agreed && !recordStands) {
        lossAccount.enter(event);
    }
    return agreed && recordStands;
}

void setNotifyTarget(JNIEnv *env, jclass cls) {
    const NotifyTarget *none = nullptr;
    const jmethodID method = notifyTarget.load(std::memory_order_relaxed) == none
                                 ? findStaticMethod(env, cls, "notifyListeners", "(I)Z")
                                 : nullptr;
    const auto global = method != nullptr ? static_cast<jclass>(env->NewGlobalRef(cls)) : nullptr;
    if (global == nullptr) {
        return;
    }
    auto *target = new (std::nothrow) NotifyTarget{global, method};
    if (target == nullptr || !notifyTarget.compare_exchange_strong(none, target, std::memory_order_acq_rel)) {
        env->DeleteGlobalRef(global);
        delete target;
    }
}

void setListenerCount(jint count) {
    listenerCount = count;
}

void setEntryExitNotification(bool on) {
    notificationOn = on;
}

bool appendRequestEvent(JNIEnv *env, ThreadData *thr, EventDraft &request) {
    bool recordStands;
    if (!askListeners(env, request.event(), recordStands)) {
        return recordStands;
    }
    if (thr == nullptr) {
        thr = callingThread(env);
    }
    if (thr == nullptr) {
        messageWarn(1045, "ThreadData creation failed");
        lossAccount.enter(request.event());
        return true;
    }
    thr->appendEvent(&request);
    return true;
}
