// Records that stand alone: of a thread, or of none.
#include "EventAssembly.h"
#include "EvtAgentMgr.h"
#include "platform.h"

#include <cstdlib>
#include <cstring>

using namespace assembly;

namespace {

Relaxed<int32_t> samplingLevels[SAMPLING_LEVELS];
Relaxed<int32_t> samplingUseDefault(0);

// One record of the calling thread, without clocks; nothing if the thread has no data.
template <typename E, typename Fill>
bool appendSingle(JNIEnv *env, Fill fill) {
    ThreadData *td = callingThread(env);
    if (td == nullptr) {
        return false;
    }
    E *event = newThreadEvent<E>(td, Event::SUB_ALONE);
    Texts texts(env);
    fill(*event, texts);
    addWeight(*event, texts.weight());
    appendRequestEvent(env, td, event);
    return true;
}

// To the special queue of the first agent, past listeners and gate; takes ownership in every case.
void appendSpecial(Event *event) {
    EvtAgentMgr *agents = evtAgentMgr;
    ThreadData *special = agents != nullptr ? agents->getSpecialThreadData() : nullptr;
    if (special != nullptr) {
        special->appendEvent(event);
    } else {
        delete event;
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

void appendXQIEvent(JNIEnv *env, jstring mgrName, jstring queueName, jlong snapShotTime, int8_t *type,
                    int32_t *count, int64_t *avgTimeTaken, int32_t arrLength) {
    const bool made = appendSingle<XQIEvent>(env, [=](XQIEvent &event, Texts &texts) {
        texts.weigh(event.mgrName, mgrName);
        texts.weigh(event.queueName, queueName);
        event.snapShotTime = snapShotTime;
        event.types = type;
        event.counts = count;
        event.avgTimes = avgTimeTaken;
        event.arrLength = arrLength;
    });
    if (!made) {
        free(type);
        free(count);
        free(avgTimeTaken);
    }
}

void appendDroppedRecEvent(JNIEnv *env) {
    appendSingle<DroppedEvent>(env, [](DroppedEvent &, Texts &) {});
}

void appendSamplingRateEvent(JNIEnv *env, const int32_t *levels, int32_t useDefault) {
    ThreadData *td = callingThread(env);
    SamplingEvent *event = newThreadEvent<SamplingEvent>(td, Event::SUB_ALONE);
    getCurrentTime(&event->timeSec, &event->timeUSec);
    memcpy(event->levels, levels, sizeof(event->levels));
    event->useDefault = useDefault;
    appendSpecial(event);
}

void appendPSStatusRecEvent(JNIEnv *env, jstring mesg) {
    PSStatusEvent *event = new PSStatusEvent(Event::SUB_ALONE);
    Texts texts(env);
    texts.weigh(event->message, mesg);
    addWeight(*event, texts.weight());
    appendSpecial(event);
}

void storeSamplingRates(const int32_t *levels, int32_t useDefault) {
    for (int i = 0; i < SAMPLING_LEVELS; ++i) {
        samplingLevels[i] = levels[i];
    }
    samplingUseDefault = useDefault;
}

void resendSamplingRates(JNIEnv *env) {
    int32_t levels[SAMPLING_LEVELS];
    for (int i = 0; i < SAMPLING_LEVELS; ++i) {
        levels[i] = samplingLevels[i];
    }
    appendSamplingRateEvent(env, levels, samplingUseDefault);
}
