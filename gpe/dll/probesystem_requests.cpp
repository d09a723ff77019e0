// Natives by which instrumented Java code tells of its requests: NativeEventAgentImpl and the two statement
// classes. Each passes the gate and calls one operation of the event assembly. None throws; a failure inside
// is an event less. Natives with a result return the calling thread's number, also when refused.
#include "EventAssembly.h"
#include "EventUtils.h"
#include "MemoryMonitor.h"
#include "ProbeLgKit.h"
#include "ProbeState.h"
#include "ThreadData.h"
#include "ThreadMgr.h"
#include "WebService.h"
#include "jnihelp.h"
#include "platform.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#define EVENT_AGENT(name) Java_com_qel_morvex_norak_dc_eventagent_NativeEventAgentImpl_##name

using assembly::callingThread;

namespace {

// ---------------------------------------------------------------- thread numbers

// By the id lookup, which gives the thread a number if it has none; 0 while there is no thread manager.
jint lookedUpId(JNIEnv *env) {
    ThreadMgr *threads = threadMgr;
    return threads != nullptr ? static_cast<jint>(threads->getThreadId(env)) : 0;
}

// Where no gate came before, or listeners were asked since: while the probe is being stopped a thread counts
// as unknown, as its record may be destroyed once the calls that came before are out.
ThreadData *ungatedThread(JNIEnv *env) {
    return probeDisabled ? nullptr : callingThread(env);
}

// Calls `use` with the calling thread's data if it has any, for a native that no gate precedes.
template <typename Use>
void withOwnThread(JNIEnv *env, Use use) {
    const Inside inside;
    ThreadData *td = inside ? ungatedThread(env) : nullptr;
    if (td != nullptr) {
        use(*td);
    }
}

// The gate for a native with a result: runs `action` and answers with the thread's number.
template <typename Action>
jint gatedWithId(JNIEnv *env, Action action) {
    const Admission admitted(env);
    if (!admitted) {
        return lookedUpId(env);
    }
    action();
    const ThreadData *td = ungatedThread(env);
    return td != nullptr ? static_cast<jint>(td->threadId.get()) : lookedUpId(env);
}

// ---------------------------------------------------------------- HTTP

void startHttp(JNIEnv *env, jstring requestName, jstring applicationName, jstring url, jstring userId) {
    ThreadData *td = callingThread(env);
    if (td != nullptr) {
        td->lastCpuTime = 0;
        if (assembly::suppressBegin(td)) {
            return;
        }
        ++td->requestDepth;
    }
    assembly::NestedDraft<HttpEvent> draft(td, Event::SUB_START);
    assembly::fillAndCharge(env, draft, [=](HttpEvent &event, assembly::Texts &texts) {
        texts.copy(event.userId, userId, assembly::knownTo(td, &KnownStrings::userId));
    });
    sendRequest(env, td, draft, requestName, applicationName, url);
}

// Both ends carry the depth of the level that they close, also where no level was open.
void endHttp(JNIEnv *env, ThreadData *td, Event::EventSubType subType, jstring requestName,
             jstring applicationName, jstring url) {
    assembly::NestedDraft<HttpEvent> draft(td, subType);
    ++draft->requestDepth;
    sendRequest(env, td, draft, requestName, applicationName, url);
}

bool isCancelledPage(JNIEnv *env, jstring requestName) {
    constexpr char CANCEL[] = "JSP_CANCEL_REQUEST";
    if (requestName == nullptr || env->GetStringLength(requestName) != sizeof(CANCEL) - 1) {
        return false;
    }
    char name[sizeof(CANCEL)] = "";
    jniStringToBuffer(env, requestName, name, sizeof(name));
    return strcmp(name, CANCEL) == 0;
}

void closeLevel(JNIEnv *env, ThreadData *td, jstring requestName) {
    td->requestDepth = isCancelledPage(env, requestName) ? 0 : td->requestDepth - 1;
}

void finishHttp(JNIEnv *env, jstring requestName) {
    ThreadData *td = callingThread(env);
    if (td != nullptr && td->requestDepth >= 1) {
        if (assembly::suppressEnd(td)) {
            return;
        }
        closeLevel(env, td, requestName);
    }
    endHttp(env, td, Event::SUB_END, nullptr, nullptr, nullptr);
}

void failHttp(JNIEnv *env, jstring requestName, jstring applicationName, jstring err) {
    ThreadData *td = callingThread(env);
    if (td != nullptr && td->requestDepth >= 1) {
        closeLevel(env, td, requestName);
    }
    endHttp(env, td, Event::SUB_FAILED, requestName, applicationName, err);
}

Event::JMS_ACTION jmsAction(jint jmsType) {
    return jmsType >= Event::JMS_ACTION_1 && jmsType <= Event::JMS_ACTION_4
               ? static_cast<Event::JMS_ACTION>(jmsType)
               : Event::JMS_ACTION_3;
}

// ---------------------------------------------------------------- thread times

// The fields of the Java object that takes the times; looked up once.
struct TimesFields {
    jclass cls = nullptr; // global, so that the ids stay valid
    jfieldID cpuTime = nullptr;
    jfieldID timeSec = nullptr;
    jfieldID timeUSec = nullptr;
};

bool lookUpTimesFields(JNIEnv *env, jobject times, TimesFields &fields) {
    const LocalRef<jclass> cls(env, env->GetObjectClass(times));
    const auto find = [&](const char *name, const char *signature) {
        const jfieldID field = env->GetFieldID(cls.get(), name, signature);
        return clearException(env) ? nullptr : field;
    };
    fields.cpuTime = find("cpuTime", "J");
    fields.timeSec = fields.cpuTime != nullptr ? find("timeSec_", "I") : nullptr;
    fields.timeUSec = fields.timeSec != nullptr ? find("timeUSec_", "I") : nullptr;
    if (fields.timeUSec == nullptr) {
        return false;
    }
    fields.cls = static_cast<jclass>(env->NewGlobalRef(cls.get()));
    return fields.cls != nullptr;
}

// Null if the object has no such fields. Of two threads that look them up at once the first is believed.
const TimesFields *timesFields(JNIEnv *env, jobject times) {
    static std::atomic<const TimesFields *> known{nullptr};
    const TimesFields *fields = known.load(std::memory_order_acquire);
    if (fields != nullptr) {
        return fields;
    }
    std::unique_ptr<TimesFields> found(new (std::nothrow) TimesFields);
    if (found == nullptr || !lookUpTimesFields(env, times, *found)) {
        return nullptr;
    }
    if (known.compare_exchange_strong(fields, found.get(), std::memory_order_acq_rel)) {
        return found.release();
    }
    env->DeleteGlobalRef(found->cls);
    return fields;
}

void fillThreadTimes(JNIEnv *env, ThreadData *td, jobject times) {
    const TimesFields *fields = timesFields(env, times);
    if (fields == nullptr || env->IsInstanceOf(times, fields->cls) == JNI_FALSE) {
        return;
    }
    uint32_t sec = 0;
    uint32_t usec = 0;
    env->SetLongField(times, fields->cpuTime, assembly::threadCpuTime(td));
    getCurrentTime(&sec, &usec);
    env->SetIntField(times, fields->timeSec, static_cast<jint>(sec));
    env->SetIntField(times, fields->timeUSec, static_cast<jint>(usec));
    clearException(env);
}

// ---------------------------------------------------------------- sampling, trace request, XQI

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
    assembly::NestedDraft<TraceEvent> draft(td, Event::SUB_ALONE);
    sendRequest(env, td, draft, name.get(), application.get(), url.get());
}

} // namespace

extern "C" {

// ---------------------------------------------------------------- HTTP

// The first parameter is not used.
JNIEXPORT jint JNICALL EVENT_AGENT(startHttpRequestNative)(JNIEnv *env, jclass, jint, jstring requestName,
                                                           jstring applicationName, jstring url,
                                                           jstring userId) {
    return gatedWithId(env, [=] { startHttp(env, requestName, applicationName, url, userId); });
}

// The name "JSP_CANCEL_REQUEST" closes all levels of the thread.
JNIEXPORT jint JNICALL EVENT_AGENT(finishHttpRequestNative)(JNIEnv *env, jclass, jstring requestName) {
    return gatedWithId(env, [=] { finishHttp(env, requestName); });
}

// Ends a request that failed, in place of a finish.
JNIEXPORT jint JNICALL EVENT_AGENT(errorHttpRequestNative)(JNIEnv *env, jclass, jstring requestName,
                                                           jstring applicationName, jstring err) {
    return gatedWithId(env, [=] { failHttp(env, requestName, applicationName, err); });
}

// ---------------------------------------------------------------- SQL

#define AM_SQL_NATIVE(javaName, thisType, operation)                                                         \
    JNIEXPORT void JNICALL javaName(JNIEnv *env, thisType self, jstring sql, jstring dataSrcName) {          \
        if (const Admission admitted{env}) {                                                                 \
            operation(env, self, sql, dataSrcName);                                                          \
        }                                                                                                    \
    }

AM_SQL_NATIVE(EVENT_AGENT(beginSQLRequestNative), jclass, beginSQLRequest)
AM_SQL_NATIVE(EVENT_AGENT(endSQLRequestNative), jclass, endSQLRequest)
AM_SQL_NATIVE(Java_com_zykora_jdbc_ZykoraStatement_beginSQLRequest, jobject, beginSQLRequest)
AM_SQL_NATIVE(Java_com_zykora_jdbc_ZykoraStatement_endSQLRequest, jobject, endSQLRequest)
AM_SQL_NATIVE(Java_oracle_jdbc_driver_OracleStatement_beginSQLRequest, jobject, beginJDBCSQLRequest)
AM_SQL_NATIVE(Java_oracle_jdbc_driver_OracleStatement_endSQLRequest, jobject, endJDBCSQLRequest)

// ---------------------------------------------------------------- resources of a request

JNIEXPORT void JNICALL EVENT_AGENT(beginJCARequestNative)(JNIEnv *env, jclass, jstring, jstring prodName) {
    if (const Admission admitted{env}) {
        beginJCARequest(env, prodName);
    }
}

// The pool's name here, the product's in the begin.
JNIEXPORT void JNICALL EVENT_AGENT(endJCARequestNative)(JNIEnv *env, jclass, jstring poolName, jstring) {
    if (const Admission admitted{env}) {
        endJCARequest(env, poolName);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(beginJNDIRequestNative)(JNIEnv *env, jclass, jstring lookupName,
                                                           jstring url) {
    if (const Admission admitted{env}) {
        beginJNDIRequest(env, url, lookupName);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(endJNDIRequestNative)(JNIEnv *env, jclass, jstring lookupName,
                                                         jstring url) {
    if (const Admission admitted{env}) {
        endJNDIRequest(env, url, lookupName);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(beginMailRequestNative)(JNIEnv *env, jclass, jstring subject,
                                                           jstring mailServURL) {
    if (const Admission admitted{env}) {
        beginJavaMailRequest(env, mailServURL, subject);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(endMailRequestNative)(JNIEnv *env, jclass, jstring subject,
                                                         jstring mailServURL) {
    if (const Admission admitted{env}) {
        endJavaMailRequest(env, mailServURL, subject);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(beginJDORequestNative)(JNIEnv *env, jclass, jstring className,
                                                          jstring methodName, jstring argumentString) {
    if (const Admission admitted{env}) {
        beginJDORequest(env, className, methodName, argumentString);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(endJDORequestNative)(JNIEnv *env, jclass, jstring className,
                                                        jstring methodName, jstring argumentString) {
    if (const Admission admitted{env}) {
        endJDORequest(env, className, methodName, argumentString);
    }
}

// `jmsType` is 1 to 4; any other counts as 3.
JNIEXPORT void JNICALL EVENT_AGENT(beginJMSRequestNative)(JNIEnv *env, jclass, jint jmsType, jstring queName,
                                                          jstring provUrl, jstring sel) {
    if (const Admission admitted{env}) {
        beginJMSRequest(env, jmsAction(jmsType), provUrl, queName, sel);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(endJMSRequestNative)(JNIEnv *env, jclass, jint jmsType, jstring queName,
                                                        jstring provUrl, jstring sel) {
    if (const Admission admitted{env}) {
        endJMSRequest(env, jmsAction(jmsType), provUrl, queName, sel);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(beginXQRequestNative)(JNIEnv *env, jclass, jstring queueMgrName,
                                                         jstring queueName, jint type) {
    if (const Admission admitted{env}) {
        beginXQRequest(env, queueName, queueMgrName, type);
    }
}

// With `gpsSend` a correlated pair follows.
JNIEXPORT void JNICALL EVENT_AGENT(endXQRequestNative)(JNIEnv *env, jclass, jstring queueMgr,
                                                       jstring queueName, jint type, jbyteArray gpsToken,
                                                       jboolean gpsSend) {
    const Admission admitted(env);
    if (!admitted) {
        return;
    }
    endXQRequest(env, queueName, queueMgr, type);
    if (gpsSend == JNI_TRUE) {
        processGpsXQRequest(env, queueName, queueMgr, type, gpsToken);
    }
}

// ---------------------------------------------------------------- requests of the server

JNIEXPORT jint JNICALL EVENT_AGENT(beginEJBRequestNative)(JNIEnv *env, jclass cls, jbyteArray data,
                                                          jint count) {
    return gatedWithId(env, [=] { beginBeanRequest(env, cls, data, count); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(endEJBRequestNative)(JNIEnv *env, jclass cls) {
    return gatedWithId(env, [=] { endBeanRequest(env, cls); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(startIIOPClientRequestNative)(JNIEnv *env, jclass, jstring className,
                                                                 jstring methodName) {
    return gatedWithId(env, [=] {
        appendCommonEvent(env, Event::TYPE_IIOP_CLIENT, Event::SUB_START, className, methodName);
    });
}

JNIEXPORT jint JNICALL EVENT_AGENT(finishIIOPClientRequestNative)(JNIEnv *env, jclass, jstring, jstring) {
    return gatedWithId(
        env, [=] { appendCommonEvent(env, Event::TYPE_IIOP_CLIENT, Event::SUB_END, nullptr, nullptr); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(startIIOPServerRequestNative)(JNIEnv *env, jclass, jstring className,
                                                                 jstring methodName) {
    return gatedWithId(env, [=] {
        appendCommonEvent(env, Event::TYPE_IIOP_SERVER, Event::SUB_START, className, methodName);
    });
}

JNIEXPORT jint JNICALL EVENT_AGENT(finishIIOPServerRequestNative)(JNIEnv *env, jclass, jstring, jstring) {
    return gatedWithId(
        env, [=] { appendCommonEvent(env, Event::TYPE_IIOP_SERVER, Event::SUB_END, nullptr, nullptr); });
}

#define AM_WS_NATIVE(javaName, operation, subType)                                                           \
    JNIEXPORT void JNICALL EVENT_AGENT(javaName)(JNIEnv * env, jclass, jstring appName, jstring requestName, \
                                                 jstring url) {                                              \
        if (const Admission admitted{env}) {                                                                 \
            operation(env, subType, appName, requestName, url);                                              \
        }                                                                                                    \
    }

AM_WS_NATIVE(wsHelperClientRequestNative, appendWSClientEvent, Event::SUB_START)
AM_WS_NATIVE(wsHelperClientResponseNative, appendWSClientEvent, Event::SUB_END)
AM_WS_NATIVE(wsHelperProviderRequestNative, appendWSProviderEvent, Event::SUB_START)
AM_WS_NATIVE(wsHelperProviderResponseNative, appendWSProviderEvent, Event::SUB_END)

// A fault is a pair of its own.
#define AM_WS_FAULT_NATIVE(javaName)                                                                         \
    JNIEXPORT void JNICALL EVENT_AGENT(javaName)(JNIEnv * env, jclass, jstring appName, jstring faultCode,   \
                                                 jstring faultString) {                                      \
        if (const Admission admitted{env}) {                                                                 \
            appendWSFaultEvent(env, Event::SUB_START, appName, faultCode, faultString);                      \
            appendWSFaultEvent(env, Event::SUB_END, appName, faultCode, faultString);                        \
        }                                                                                                    \
    }

AM_WS_FAULT_NATIVE(wsHelperClientFaultNative)
AM_WS_FAULT_NATIVE(wsHelperProviderFaultNative)

// Nothing for no values or a null array. Values that are no strings count as null.
JNIEXPORT jint JNICALL EVENT_AGENT(genericStartEventNative)(JNIEnv *env, jclass, jint id, jint nCtxProps,
                                                            jobjectArray ctxValues) {
    return gatedWithId(env, [=] { beginGenericEvent(env, id, nCtxProps, ctxValues); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(genericStopEventNative)(JNIEnv *env, jclass, jint id) {
    return gatedWithId(env, [=] { endGenericEvent(env, id); });
}

JNIEXPORT void JNICALL EVENT_AGENT(genericExceptionEventNative)(JNIEnv *env, jclass, jint id, jint nCtxProps,
                                                                jobjectArray ctxValues) {
    if (const Admission admitted{env}) {
        exceptionGenericEvent(env, id, nCtxProps, ctxValues);
    }
}

// ---------------------------------------------------------------- records that stand alone

JNIEXPORT void JNICALL EVENT_AGENT(sendExceptionNative)(JNIEnv *env, jclass, jstring ex, jstring cn,
                                                        jstring mn, jstring st) {
    if (const Admission admitted{env}) {
        appendExceptionEvent(env, ex, cn, mn, st);
    }
}

JNIEXPORT void JNICALL EVENT_AGENT(sendGWXRecordNative)(JNIEnv *env, jclass, jstring gatewayName,
                                                        jstring serverName, jstring progName,
                                                        jlong snapShotTime, jint count, jlong avgTimeTaken) {
    if (const Admission admitted{env}) {
        appendGWXEvent(env, gatewayName, serverName, progName, snapShotTime, count, avgTimeTaken);
    }
}

// Nothing unless all arrays are there and `arrLength` is positive and that of `type`.
JNIEXPORT void JNICALL EVENT_AGENT(sendXQIRecordNative)(JNIEnv *env, jclass, jstring mgrName,
                                                        jstring queueName, jlong snapShotTime,
                                                        jbyteArray type, jintArray count,
                                                        jlongArray avgTimeTaken, jint arrLength) {
    const Admission admitted(env);
    if (!admitted || type == nullptr || arrLength <= 0 || env->GetArrayLength(type) != arrLength) {
        return;
    }
    appendXQIEvent(env, mgrName, queueName, snapShotTime, type, count, avgTimeTaken, arrLength);
}

JNIEXPORT void JNICALL EVENT_AGENT(setPSStatusEventNative)(JNIEnv *env, jclass, jstring status) {
    if (const Admission admitted{env}) {
        appendPSStatusRecEvent(env, status);
    }
}

// Not gated: a marker tells of what the gate refused.
JNIEXPORT void JNICALL EVENT_AGENT(sendDroppedEventRecordNative)(JNIEnv *env, jclass) {
    withOwnThread(env, [=](ThreadData &) { appendDroppedRecEvent(env); });
}

JNIEXPORT void JNICALL EVENT_AGENT(issueTraceRequestNative)(JNIEnv *env, jclass) {
    if (const Admission admitted{env}) {
        issueTraceRequest(env);
    }
}

// The first four levels count; missing ones stay as they were, and null changes nothing. They are sent again
// on a new connection.
JNIEXPORT void JNICALL EVENT_AGENT(setSamplingRatesNative)(JNIEnv *env, jclass, jintArray levels,
                                                           jint useDefault) {
    if (const Admission admitted{env}) {
        takeSamplingRates(env, levels, useDefault);
    }
}

// ---------------------------------------------------------------- questions about the calling thread

// Open levels of the thread; 0 if it has no data.
JNIEXPORT jint JNICALL EVENT_AGENT(getNumPendingRequests)(JNIEnv *env, jclass) {
    jint depth = 0;
    withOwnThread(env, [&](const ThreadData &td) { depth = td.requestDepth; });
    return depth;
}

// The thread's number, given if it has none.
JNIEXPORT jint JNICALL EVENT_AGENT(getEnvNative)(JNIEnv *env, jclass) {
    return lookedUpId(env);
}

// Fills `cpuTime` (nanoseconds), `timeSec_` and `timeUSec_` of `times`. Null is left alone, and so is any
// object while the thread has no data.
JNIEXPORT void JNICALL EVENT_AGENT(getThreadTimesNative)(JNIEnv *env, jclass, jobject times) {
    if (times != nullptr) {
        withOwnThread(env, [=](ThreadData &td) { fillThreadTimes(env, &td, times); });
    }
}

// ---------------------------------------------------------------- listeners

JNIEXPORT void JNICALL EVENT_AGENT(enableEntryExitTraceNative)(JNIEnv *, jclass) {
    setEntryExitNotification(true);
}

JNIEXPORT void JNICALL EVENT_AGENT(disableEntryExitTraceNative)(JNIEnv *, jclass) {
    setEntryExitNotification(false);
}

JNIEXPORT void JNICALL EVENT_AGENT(indicateNumberOfListeners)(JNIEnv *, jclass, jint n) {
    setListenerCount(n);
}

// Keeps the calling class as the target of `notifyListeners`; only the first call counts.
JNIEXPORT void JNICALL EVENT_AGENT(initNative)(JNIEnv *env, jclass cls) {
    setNotifyTarget(env, cls);
}

} // extern "C"
