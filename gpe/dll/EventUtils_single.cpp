// Records that stand alone: of a thread, or of none.
#include "EventUtils.h"

#include "EventAssembly.h"
#include "EvtAgentMgr.h"
#include "platform.h"

#include <cstdlib>
#include <cstring>

using namespace assembly;

namespace {

Relaxed<int32_t> samplingLevels[SAMPLING_LEVELS];
Relaxed<int32_t> samplingUseDefault(0);

// The queue for records without a thread, that of the first agent; null while there is none.
ThreadData *specialQueue() {
    EvtAgentMgr *agents = evtAgentMgr;
    return agents != nullptr ? agents->getSpecialThreadData() : nullptr;
}

// To the special queue, past listeners and gate; nothing without one.
void appendSpecial(EventDraft &draft) {
    ThreadData *special = specialQueue();
    if (special != nullptr) {
        special->appendEvent(&draft);
    }
}

} // namespace

void appendExceptionEvent(JNIEnv *env, jstring exception, jstring class_name, jstring method_name,
                          jstring stacktrace) {
    appendSingle<ExceptionEvent>(env, [=](ExceptionEvent &event, Texts &texts) {
        texts.copy(event.exception, exception);
        texts.copy(event.className, class_name);
        texts.copy(event.methodName, method_name);
        texts.copy(event.stackTrace, stacktrace);
    });
}

void appendGWXEvent(JNIEnv *env, jstring gatewayName, jstring serverName, jstring progName,
                    jlong snapShotTime, jint count, jlong avgTimeTaken) {
    appendSingle<GWXEvent>(env, [=](GWXEvent &event, Texts &texts) {
        texts.weigh(event.gatewayName, gatewayName);
        texts.weigh(event.serverName, serverName);
        texts.weigh(event.progName, progName);
        event.snapShotTime = snapShotTime;
        event.count = count;
        event.avgTimeTaken = avgTimeTaken;
    });
}

void appendXQIEvent(JNIEnv *env, jstring mgrName, jstring queueName, jlong snapShotTime, jbyteArray type,
                    jintArray count, jlongArray avgTimeTaken, jint arrLength) {
    for (const jarray array :
         {static_cast<jarray>(type), static_cast<jarray>(count), static_cast<jarray>(avgTimeTaken)}) {
        if (array == nullptr || env->GetArrayLength(array) < arrLength) {
            return;
        }
    }
    appendSingle<XQIEvent>(env, [=](XQIEvent &event, Texts &texts) {
        texts.weigh(event.mgrName, mgrName);
        texts.weigh(event.queueName, queueName);
        event.snapShotTime = snapShotTime;
        texts.hold<jbyte>(event.types, type, arrLength, &JNIEnv::GetByteArrayRegion);
        texts.hold<jint>(event.counts, count, arrLength, &JNIEnv::GetIntArrayRegion);
        texts.hold<jlong>(event.avgTimes, avgTimeTaken, arrLength, &JNIEnv::GetLongArrayRegion);
        event.arrLength = arrLength;
    });
}

void appendDroppedRecEvent(JNIEnv *env) {
    appendSingle<DroppedEvent>(env, [](DroppedEvent &, Texts &) {});
}

void appendSamplingRateEvent(JNIEnv *env, const int32_t *levels, int32_t useDefault) {
    ThreadDraft<SamplingEvent> draft(callingThread(env), Event::SUB_ALONE);
    getCurrentTime(&draft->timeSec, &draft->timeUSec);
    memcpy(draft->levels, levels, sizeof(draft->levels));
    draft->useDefault = useDefault;
    appendSpecial(draft);
}

void appendPSStatusRecEvent(JNIEnv *env, jstring mesg) {
    Draft<PSStatusEvent> draft(Event::SUB_ALONE);
    fillAndCharge(env, draft, [=](PSStatusEvent &event, Texts &texts) { texts.weigh(event.message, mesg); });
    appendSpecial(draft);
}

namespace {

void setTime(GCEvent &event, jlong millis) {
    event.timeSec = static_cast<uint32_t>(millis / 1000);
    event.timeUSec = static_cast<uint32_t>(millis % 1000 * 1000);
}

} // namespace

void appendGCEvent(JNIEnv *, jlong startTime, jlong endTime, jlong usedObjects, jlong usedObjectSpace,
                   jlong totalObjectSpace) {
    ThreadData *special = specialQueue();
    if (special == nullptr) {
        return;
    }
    ThreadDraft<GCEvent> start(special, Event::SUB_START);
    ThreadDraft<GCEvent> end(special, Event::SUB_END);
    setTime(*start, startTime);
    setTime(*end, endTime);
    end->usedObjects = static_cast<uint64_t>(usedObjects);
    end->usedObjectSpace = static_cast<uint64_t>(usedObjectSpace);
    end->totalObjectSpace = static_cast<uint64_t>(totalObjectSpace);
    special->appendEvent(&start);
    special->appendEvent(&end);
}

void storeSamplingRates(const int32_t *levels, int32_t useDefault) {
    for (int i = 0; i < SAMPLING_LEVELS; ++i) {
        samplingLevels[i] = levels[i];
    }
    samplingUseDefault = useDefault;
}

int32_t storedSamplingRates(int32_t *levels) {
    for (int i = 0; i < SAMPLING_LEVELS; ++i) {
        levels[i] = samplingLevels[i];
    }
    return samplingUseDefault;
}

void resendSamplingRates(JNIEnv *env) {
    int32_t levels[SAMPLING_LEVELS];
    const int32_t useDefault = storedSamplingRates(levels);
    appendSamplingRateEvent(env, levels, useDefault);
}
