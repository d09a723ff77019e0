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

// The queue for records without a thread, that of the first agent; null while there is none.
ThreadData *specialQueue() {
    EvtAgentMgr *agents = evtAgentMgr;
    return agents != nullptr ? agents->getSpecialThreadData() : nullptr;
}

// To the special queue, past listeners and gate; takes ownership in every case.
void appendSpecial(Event *event) {
    ThreadData *special = specialQueue();
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
        texts.hold(int64_t{arrLength} * (sizeof(*type) + sizeof(*count) + sizeof(*avgTimeTaken)));
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
    if (event == nullptr) {
        return;
    }
    getCurrentTime(&event->timeSec, &event->timeUSec);
    memcpy(event->levels, levels, sizeof(event->levels));
    event->useDefault = useDefault;
    appendSpecial(event);
}

void appendPSStatusRecEvent(JNIEnv *env, jstring mesg) {
    PSStatusEvent *event = new PSStatusEvent(Event::SUB_ALONE);
    if (event == nullptr) {
        return;
    }
    fillAndCharge(env, *event,
                  [=](PSStatusEvent &target, Texts &texts) { texts.weigh(target.message, mesg); });
    appendSpecial(event);
}

namespace {

// Null when memory is out.
GCEvent *newCollection(const ThreadData &special, Event::EventSubType subType, jlong millis) {
    GCEvent *event = newThreadEvent<GCEvent>(&special, subType);
    if (event == nullptr) {
        return nullptr;
    }
    event->timeSec = static_cast<uint32_t>(millis / 1000);
    event->timeUSec = static_cast<uint32_t>(millis % 1000 * 1000);
    return event;
}

} // namespace

void appendGCEvent(JNIEnv *, jlong startTime, jlong endTime, jlong usedObjects, jlong usedObjectSpace,
                   jlong totalObjectSpace) {
    ThreadData *special = specialQueue();
    if (special == nullptr) {
        return;
    }
    GCEvent *start = newCollection(*special, Event::SUB_START, startTime);
    GCEvent *end = newCollection(*special, Event::SUB_END, endTime);
    if (start == nullptr || end == nullptr) {
        delete start;
        delete end;
        return;
    }
    special->appendEvent(start);
    end->usedObjects = static_cast<uint64_t>(usedObjects);
    end->usedObjectSpace = static_cast<uint64_t>(usedObjectSpace);
    end->totalObjectSpace = static_cast<uint64_t>(totalObjectSpace);
    special->appendEvent(end);
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
