// Monitors that a request waits for.
#include "EventAssembly.h"
#include "ThreadMgr.h"
#include "platform.h"

using namespace assembly;

namespace {

// Who owns the monitor, and what is known of it.
struct Contention {
    jint lockingMethodId;
    jstring lockedClassName;
    jbyte owningRequestType;
    jstring owningRequestName;
    jstring owningApplicationName;
    jint owningMethodId;

    void operator()(LockContentionEvent &event, Texts &texts) const {
        event.lockingMethodId = lockingMethodId;
        texts.weigh(event.lockedClassName, lockedClassName);
        event.owningRequestType = owningRequestType;
        texts.weigh(event.owningRequestName, owningRequestName);
        texts.copy(event.owningApplicationName, owningApplicationName);
        event.owningMethodId = owningMethodId;
    }
};

Goes textsGo(Event::EventSubType subType) {
    return subType == Event::SUB_START ? Goes::Out : Goes::Nowhere;
}

// The key of a thread other than the caller; null if the number is the caller's or unknown.
JNIEnv *otherThread(JNIEnv *env, jint threadId) {
    ThreadMgr *threads = threadMgr;
    const auto number = static_cast<uint32_t>(threadId);
    const bool isOther = threads != nullptr && threads->getThreadId(env) != number;
    return isOther ? threads->getEnv(number) : nullptr;
}

bool recordOwn(JNIEnv *env, Event::EventSubType subType, const Contention &contention) {
    ThreadData *td = callingThread(env);
    const bool start = subType == Event::SUB_START;
    if (!(start ? enter(td, Rule::Plain) : mayEnd(td, Rule::Plain))) {
        return false;
    }
    NestedDraft<LockContentionEvent> draft(td, subType);
    const bool recordStands =
        completeAndAppend(env, td, draft, Clocks::WallFirst, contention, textsGo(subType));
    if (recordStands && !start) {
        leave(td);
    }
    return true;
}

// The other thread waits for the monitor and does nothing meanwhile; the lock keeps its record from being
// destroyed, so listeners are asked before. Its CPU clock cannot be read from here.
bool recordOther(JNIEnv *env, jint waitingThreadId, Event::EventSubType subType,
                 const Contention &contention) {
    Draft<LockContentionEvent> draft(subType);
    getCurrentTime(&draft->timeSec, &draft->timeUSec);
    fillAndCharge(env, draft, contention, textsGo(subType));
    bool recordStands;
    const bool agreed = askListeners(env, *draft, recordStands);
    ThreadMgr *threads = threadMgr;
    const ZykLockGuard guard(threads->destructionLock());
    JNIEnv *waiting = otherThread(env, waitingThreadId); // once more: it may have ended meanwhile
    ThreadData *td = waiting != nullptr ? threads->findThreadData(waiting) : nullptr;
    const bool start = subType == Event::SUB_START;
    if (td == nullptr || !(start ? enter(td, Rule::Plain) : mayEnd(td, Rule::Plain))) {
        return false;
    }
    if (agreed) {
        draft->threadId = td->threadId;
        draft->requestDepth = td->requestDepth;
        draft->cpuTime = td->lastCpuTime;
        td->appendEvent(&draft);
    }
    if (!start) {
        leave(td);
    }
    return true;
}

bool recordContention(JNIEnv *env, Event::EventSubType subType, jint waitingThreadId,
                      const Contention &contention) {
    return otherThread(env, waitingThreadId) != nullptr
               ? recordOther(env, waitingThreadId, subType, contention)
               : recordOwn(env, subType, contention);
}

} // namespace

bool beginLockContention(JNIEnv *env, jint lockingMethodId, jstring lockedClassName, jbyte owningRequestType,
                         jstring owningRequestName, jstring owningApplicationName, jint owning_method_id,
                         jint waitingThreadId) {
    return recordContention(env, Event::SUB_START, waitingThreadId,
                            {lockingMethodId, lockedClassName, owningRequestType, owningRequestName,
                             owningApplicationName, owning_method_id});
}

bool endLockContention(JNIEnv *env, jint lockingMethodId, jstring lockedClassName, jbyte owningRequestType,
                       jstring owningRequestName, jstring owningApplicationName, jint owning_method_id,
                       jint waitingThreadId) {
    return recordContention(env, Event::SUB_END, waitingThreadId,
                            {lockingMethodId, lockedClassName, owningRequestType, owningRequestName,
                             owningApplicationName, owning_method_id});
}
