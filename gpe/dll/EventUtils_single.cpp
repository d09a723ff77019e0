// Records that stand alone: of a thread, or of none.
#include "EventUtils.h"

#include "EventAssembly.h"
#include "EvtAgentMgr.h"
#include "MemoryMonitor.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "platform.h"

#include <algorithm>
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

void takeSamplingRates(JNIEnv *env, jintArray levels, jint useDefault) {
    if (probeDisabled) {
        AM_TRACE(ccTracer, LGK_DEBUG_MID, "setNativeSamplingRates()",
                 "Native probe is disabled, rejecting setNativeSamplingRates");
        return;
    }
    if (levels == nullptr) {
        return;
    }
    int32_t table[SAMPLING_LEVELS];
    storedSamplingRates(table);
    env->GetIntArrayRegion(levels, 0, std::min<jsize>(env->GetArrayLength(levels), SAMPLING_LEVELS), table);
    storeSamplingRates(table, useDefault);
    appendSamplingRateEvent(env, table, useDefault);
}

void issueTraceRequest(JNIEnv *env) {
    // Null, with nothing pending, when memory is out.
    const auto text = [env](const char *utf) {
        jstring made = env->NewStringUTF(utf);
        clearException(env);
        return made;
    };
    const LocalRef<jstring> name(env, text("system_trace"));
    const LocalRef<jstring> application(env, text("trace_app"));
    const LocalRef<jstring> url(env, text(""));
    if (shouldReject(env)) {
        return;
    }
    ThreadData *td = callingThread(env);
    NestedDraft<TraceEvent> draft(td, Event::SUB_ALONE);
    sendRequest(env, td, draft, name.get(), application.get(), url.get());
}
