// Natives by which instrumented Java code tells of its requests: NativeEventAgentImpl and the two statement
// classes. Each passes the gate and calls one operation of the event assembly. None throws; a failure inside
// is an event less. Natives with a result return the calling thread's number, also when refused.
#include "EventFamilies.h"
#include "EventUtils.h"
#include "NativeGate.h"

#define EVENT_AGENT(name) Java_com_qel_morvex_norak_dc_eventagent_NativeEventAgentImpl_##name

using namespace families;
using namespace native;

namespace {

Event::JMS_ACTION jmsAction(jint jmsType) {
    return jmsType >= Event::JMS_ACTION_1 && jmsType <= Event::JMS_ACTION_4
               ? static_cast<Event::JMS_ACTION>(jmsType)
               : Event::JMS_ACTION_3;
}

} // namespace

extern "C" {

// ---------------------------------------------------------------- HTTP

// The first parameter is not used.
JNIEXPORT jint JNICALL EVENT_AGENT(startHttpRequestNative)(JNIEnv *env, jclass, jint, jstring requestName,
                                                           jstring applicationName, jstring url,
                                                           jstring userId) {
    return gatedWithNumber(env, [=] { startHttpRequest(env, requestName, applicationName, url, userId); });
}

// The name "JSP_CANCEL_REQUEST" closes all levels of the thread.
JNIEXPORT jint JNICALL EVENT_AGENT(finishHttpRequestNative)(JNIEnv *env, jclass, jstring requestName) {
    return gatedWithNumber(env, [=] { finishHttpRequest(env, requestName); });
}

// Ends a request that failed, in place of a finish.
JNIEXPORT jint JNICALL EVENT_AGENT(errorHttpRequestNative)(JNIEnv *env, jclass, jstring requestName,
                                                           jstring applicationName, jstring err) {
    return gatedWithNumber(env, [=] { failHttpRequest(env, requestName, applicationName, err); });
}

// ---------------------------------------------------------------- SQL

#define AM_SQL_NATIVE(javaName, thisType, operation)                                                         \
    JNIEXPORT void JNICALL javaName(JNIEnv *env, thisType self, jstring sql, jstring dataSrcName) {          \
        gated(env, [=] { operation(env, self, sql, dataSrcName); });                                         \
    }

AM_SQL_NATIVE(EVENT_AGENT(beginSQLRequestNative), jclass, beginSQLRequest)
AM_SQL_NATIVE(EVENT_AGENT(endSQLRequestNative), jclass, endSQLRequest)
AM_SQL_NATIVE(Java_com_zykora_jdbc_ZykoraStatement_beginSQLRequest, jobject, beginSQLRequest)
AM_SQL_NATIVE(Java_com_zykora_jdbc_ZykoraStatement_endSQLRequest, jobject, endSQLRequest)
AM_SQL_NATIVE(Java_oracle_jdbc_driver_OracleStatement_beginSQLRequest, jobject, beginJDBCSQLRequest)
AM_SQL_NATIVE(Java_oracle_jdbc_driver_OracleStatement_endSQLRequest, jobject, endJDBCSQLRequest)

// ---------------------------------------------------------------- resources of a request

JNIEXPORT void JNICALL EVENT_AGENT(beginJCARequestNative)(JNIEnv *env, jclass, jstring, jstring prodName) {
    gated(env, [=] { JCARequest::begin(env, prodName); });
}

// The pool's name here, the product's in the begin.
JNIEXPORT void JNICALL EVENT_AGENT(endJCARequestNative)(JNIEnv *env, jclass, jstring poolName, jstring) {
    gated(env, [=] { JCARequest::end(env, poolName); });
}

JNIEXPORT void JNICALL EVENT_AGENT(beginJNDIRequestNative)(JNIEnv *env, jclass, jstring lookupName,
                                                           jstring url) {
    gated(env, [=] { JNDIRequest::begin(env, lookupName, url); });
}

JNIEXPORT void JNICALL EVENT_AGENT(endJNDIRequestNative)(JNIEnv *env, jclass, jstring lookupName,
                                                         jstring url) {
    gated(env, [=] { JNDIRequest::end(env, lookupName, url); });
}

JNIEXPORT void JNICALL EVENT_AGENT(beginMailRequestNative)(JNIEnv *env, jclass, jstring subject,
                                                           jstring mailServURL) {
    gated(env, [=] { JavaMailRequest::begin(env, subject, mailServURL); });
}

JNIEXPORT void JNICALL EVENT_AGENT(endMailRequestNative)(JNIEnv *env, jclass, jstring subject,
                                                         jstring mailServURL) {
    gated(env, [=] { JavaMailRequest::end(env, subject, mailServURL); });
}

JNIEXPORT void JNICALL EVENT_AGENT(beginJDORequestNative)(JNIEnv *env, jclass, jstring className,
                                                          jstring methodName, jstring argumentString) {
    gated(env, [=] { JDORequest::begin(env, className, methodName, argumentString); });
}

JNIEXPORT void JNICALL EVENT_AGENT(endJDORequestNative)(JNIEnv *env, jclass, jstring className,
                                                        jstring methodName, jstring argumentString) {
    gated(env, [=] { JDORequest::end(env, className, methodName, argumentString); });
}

// `jmsType` is 1 to 4; any other counts as 3.
JNIEXPORT void JNICALL EVENT_AGENT(beginJMSRequestNative)(JNIEnv *env, jclass, jint jmsType, jstring queName,
                                                          jstring provUrl, jstring sel) {
    gated(env, [=] { JMSRequest::begin(env, jmsAction(jmsType), queName, provUrl, sel); });
}

JNIEXPORT void JNICALL EVENT_AGENT(endJMSRequestNative)(JNIEnv *env, jclass, jint jmsType, jstring queName,
                                                        jstring provUrl, jstring sel) {
    gated(env, [=] { JMSRequest::end(env, jmsAction(jmsType), queName, provUrl, sel); });
}

JNIEXPORT void JNICALL EVENT_AGENT(beginXQRequestNative)(JNIEnv *env, jclass, jstring queueMgrName,
                                                         jstring queueName, jint type) {
    gated(env, [=] { XQRequest::begin(env, queueMgrName, queueName, type); });
}

// With `gpsSend` a correlated pair follows.
JNIEXPORT void JNICALL EVENT_AGENT(endXQRequestNative)(JNIEnv *env, jclass, jstring queueMgr,
                                                       jstring queueName, jint type, jbyteArray gpsToken,
                                                       jboolean gpsSend) {
    gated(env, [=] {
        XQRequest::end(env, queueMgr, queueName, type);
        if (gpsSend == JNI_TRUE) {
            processGpsXQRequest(env, queueMgr, queueName, type, gpsToken);
        }
    });
}

// ---------------------------------------------------------------- requests of the server

JNIEXPORT jint JNICALL EVENT_AGENT(beginEJBRequestNative)(JNIEnv *env, jclass cls, jbyteArray data,
                                                          jint count) {
    return gatedWithNumber(env, [=] { beginBeanRequest(env, cls, data, count); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(endEJBRequestNative)(JNIEnv *env, jclass cls) {
    return gatedWithNumber(env, [=] { endBeanRequest(env, cls); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(startIIOPClientRequestNative)(JNIEnv *env, jclass, jstring className,
                                                                 jstring methodName) {
    return gatedWithNumber(env, [=] { IIOPClientCall::begin(env, className, methodName); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(finishIIOPClientRequestNative)(JNIEnv *env, jclass, jstring, jstring) {
    return gatedWithNumber(env, [=] { IIOPClientCall::end(env); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(startIIOPServerRequestNative)(JNIEnv *env, jclass, jstring className,
                                                                 jstring methodName) {
    return gatedWithNumber(env, [=] { IIOPServerCall::begin(env, className, methodName); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(finishIIOPServerRequestNative)(JNIEnv *env, jclass, jstring, jstring) {
    return gatedWithNumber(env, [=] { IIOPServerCall::end(env); });
}

JNIEXPORT void JNICALL EVENT_AGENT(wsHelperClientRequestNative)(JNIEnv *env, jclass, jstring appName,
                                                                jstring requestName, jstring url) {
    gated(env, [=] { WSClientCall::begin(env, appName, requestName, url); });
}

JNIEXPORT void JNICALL EVENT_AGENT(wsHelperClientResponseNative)(JNIEnv *env, jclass, jstring, jstring,
                                                                 jstring) {
    gated(env, [=] { WSClientCall::end(env); });
}

JNIEXPORT void JNICALL EVENT_AGENT(wsHelperProviderRequestNative)(JNIEnv *env, jclass, jstring appName,
                                                                  jstring requestName, jstring url) {
    gated(env, [=] { WSProviderCall::begin(env, appName, requestName, url); });
}

JNIEXPORT void JNICALL EVENT_AGENT(wsHelperProviderResponseNative)(JNIEnv *env, jclass, jstring, jstring,
                                                                   jstring) {
    gated(env, [=] { WSProviderCall::end(env); });
}

// A fault is a pair of its own.
#define AM_WS_FAULT_NATIVE(javaName)                                                                         \
    JNIEXPORT void JNICALL EVENT_AGENT(javaName)(JNIEnv * env, jclass, jstring appName, jstring faultCode,   \
                                                 jstring faultString) {                                      \
        gated(env, [=] {                                                                                     \
            WSFault::begin(env, appName, faultCode, faultString);                                            \
            WSFault::end(env);                                                                               \
        });                                                                                                  \
    }

AM_WS_FAULT_NATIVE(wsHelperClientFaultNative)
AM_WS_FAULT_NATIVE(wsHelperProviderFaultNative)

// Nothing for no values or a null array. Values that are no strings count as null.
JNIEXPORT jint JNICALL EVENT_AGENT(genericStartEventNative)(JNIEnv *env, jclass, jint id, jint nCtxProps,
                                                            jobjectArray ctxValues) {
    return gatedWithNumber(env, [=] { beginGenericEvent(env, id, nCtxProps, ctxValues); });
}

JNIEXPORT jint JNICALL EVENT_AGENT(genericStopEventNative)(JNIEnv *env, jclass, jint id) {
    return gatedWithNumber(env, [=] { endGenericEvent(env, id); });
}

JNIEXPORT void JNICALL EVENT_AGENT(genericExceptionEventNative)(JNIEnv *env, jclass, jint id, jint nCtxProps,
                                                                jobjectArray ctxValues) {
    gated(env, [=] { exceptionGenericEvent(env, id, nCtxProps, ctxValues); });
}

// ---------------------------------------------------------------- correlation

JNIEXPORT void JNICALL EVENT_AGENT(startGpsInvokeRequestNative)(JNIEnv *env, jclass, jbyteArray token) {
    gated(env, [=] { startGpsInvocation(env, token); });
}

JNIEXPORT void JNICALL EVENT_AGENT(startGpsTxmonInvokeRequestNative)(JNIEnv *env, jclass, jstring gateway) {
    gated(env, [=] { startGpsTxmonInvocation(env, gateway); });
}

JNIEXPORT void JNICALL EVENT_AGENT(endGpsInvokeRequestNative)(JNIEnv *env, jclass) {
    gated(env, [=] { endGpsInvocation(env); });
}

JNIEXPORT void JNICALL EVENT_AGENT(startGpsReceiveRequestNative)(JNIEnv *env, jclass,
                                                                 jbyteArray toolkitToken) {
    gated(env, [=] { startGpsReceipt(env, toolkitToken); });
}

// The end carries no token, and neither does that of the next pair.
JNIEXPORT void JNICALL EVENT_AGENT(completeGpsReceiveRequestNative)(JNIEnv *env, jclass, jbyteArray) {
    gated(env, [=] { completeGpsReceipt(env); });
}

JNIEXPORT void JNICALL EVENT_AGENT(startGpsReceiveRequest2Native)(JNIEnv *env, jclass, jstring gpsToken) {
    gated(env, [=] { startGpsTextReceipt(env, gpsToken); });
}

JNIEXPORT void JNICALL EVENT_AGENT(completeGpsReceiveRequest2Native)(JNIEnv *env, jclass, jstring) {
    gated(env, [=] { completeGpsTextReceipt(env); });
}

// ---------------------------------------------------------------- allocations and monitors

JNIEXPORT void JNICALL EVENT_AGENT(heapAllocationStartNative)(JNIEnv *env, jclass, jint methodId,
                                                              jint lineNumber, jstring className) {
    gated(env, [=] { HeapAllocation::begin(env, methodId, lineNumber, className); });
}

JNIEXPORT void JNICALL EVENT_AGENT(heapAllocationEndNative)(JNIEnv *env, jclass, jint methodId,
                                                            jint lineNumber, jstring className) {
    gated(env, [=] { HeapAllocation::end(env, methodId, lineNumber, className); });
}

// 1 if it was recorded; 0 for a kind other than 1 to 6, outside requests, and when refused.
JNIEXPORT jint JNICALL EVENT_AGENT(appendLockAnalysisEventNative)(
    JNIEnv *env, jclass, jbyte kind, jstring lockedClassName, jint lockingMethodId, jbyte owningRequestType,
    jstring owningRequestName, jstring owningApplicationName, jint owning_method_id, jint waitingThreadId) {
    const auto plain = [=](auto operation) { return operation(env, lockingMethodId, lockedClassName); };
    const auto contended = [=](auto operation) {
        return operation(env, lockingMethodId, lockedClassName, owningRequestType, owningRequestName,
                         owningApplicationName, owning_method_id, waitingThreadId);
    };
    const Admission admitted(env);
    if (!admitted) {
        return 0;
    }
    switch (kind) {
    case 1:
        return plain(LockAcquisition::begin<jint, jstring>);
    case 2:
        return plain(LockAcquisition::end<jint, jstring>);
    case 3:
        return contended(beginLockContention);
    case 4:
        return contended(endLockContention);
    case 5:
        return plain(LockRelease::begin<jint, jstring>);
    case 6:
        return plain(LockRelease::end<jint, jstring>);
    default:
        return 0;
    }
}

// ---------------------------------------------------------------- records that stand alone

JNIEXPORT void JNICALL EVENT_AGENT(sendExceptionNative)(JNIEnv *env, jclass, jstring ex, jstring cn,
                                                        jstring mn, jstring st) {
    gated(env, [=] { Exception::append(env, ex, cn, mn, st); });
}

JNIEXPORT void JNICALL EVENT_AGENT(sendGWXRecordNative)(JNIEnv *env, jclass, jstring gatewayName,
                                                        jstring serverName, jstring progName,
                                                        jlong snapShotTime, jint count, jlong avgTimeTaken) {
    gated(env, [=] {
        GWXFigures::append(env, gatewayName, serverName, progName, snapShotTime, count, avgTimeTaken);
    });
}

// Nothing unless all arrays are there and `arrLength` is positive and that of `type`.
JNIEXPORT void JNICALL EVENT_AGENT(sendXQIRecordNative)(JNIEnv *env, jclass, jstring mgrName,
                                                        jstring queueName, jlong snapShotTime,
                                                        jbyteArray type, jintArray count,
                                                        jlongArray avgTimeTaken, jint arrLength) {
    gated(env, [=] {
        if (type != nullptr && arrLength > 0 && env->GetArrayLength(type) == arrLength) {
            appendXQIEvent(env, mgrName, queueName, snapShotTime, type, count, avgTimeTaken, arrLength);
        }
    });
}

JNIEXPORT void JNICALL EVENT_AGENT(setPSStatusEventNative)(JNIEnv *env, jclass, jstring status) {
    gated(env, [=] { appendPSStatusRecEvent(env, status); });
}

// Not gated: a marker tells of what the gate refused.
JNIEXPORT void JNICALL EVENT_AGENT(sendDroppedEventRecordNative)(JNIEnv *env, jclass) {
    withOwnThread(env, [=](ThreadData &) { DroppedMarker::append(env); });
}

JNIEXPORT void JNICALL EVENT_AGENT(issueTraceRequestNative)(JNIEnv *env, jclass) {
    gated(env, [=] { issueTraceRequest(env); });
}

// The first four levels count; missing ones stay as they were, and null changes nothing. They are sent again
// on a new connection.
JNIEXPORT void JNICALL EVENT_AGENT(setSamplingRatesNative)(JNIEnv *env, jclass, jintArray levels,
                                                           jint useDefault) {
    gated(env, [=] { takeSamplingRates(env, levels, useDefault); });
}

// ---------------------------------------------------------------- questions about the calling thread

// Open levels of the thread; 0 if it has no data.
JNIEXPORT jint JNICALL EVENT_AGENT(getNumPendingRequests)(JNIEnv *env, jclass) {
    return withOwnThread(env, 0, [](const ThreadData &td) { return td.requestDepth; });
}

// The thread's number, given if it has none.
JNIEXPORT jint JNICALL EVENT_AGENT(getEnvNative)(JNIEnv *env, jclass) {
    return lookedUpNumber(env);
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
