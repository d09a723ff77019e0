// Turns one native call into an event of the calling thread: pairs begins with ends through the thread's
// request depth, decides whether the call counts, takes the clocks, copies the Java strings, and hands the
// event to the thread's queue. Called on application threads, behind the admission gate. Nothing here throws
// into Java or reports to it: every failure is an event less. A null string is an empty string.
#pragma once

#include "EventDraft.h"

#include <cstdint>
#include <jni.h>

class ThreadData;

// Complete a request event (names, clocks, weight) and append it; nothing with a null `storage`. Of names
// `urlLimit` bytes are kept, the NUL included. The draft's event is a `RequestEvent`. The result as of
// `appendRequestEvent`.
bool sendRequest(JNIEnv *env, ThreadData *storage, EventDraft &request, jstring requestName,
                 jstring applicationName, jstring url);
// Two events of a thread within the same millisecond share their clocks.
void sendEJBRequest(JNIEnv *env, ThreadData *storage, Draft<EJBEvent> &request);

// Statements. The wrapper's pair is recorded in and outside requests; the driver's pair only where no
// wrapper has reported the statement already. Of `sql` are kept `sqlLimit` bytes, the NUL included, less what
// would be a broken character.
void beginSQLRequest(JNIEnv *env, jobject thisObject, jstring sql, jstring dataSrcName);
void endSQLRequest(JNIEnv *env, jobject thisObject, jstring sql, jstring dataSrcName);
void beginJDBCSQLRequest(JNIEnv *env, jobject thisObject, jstring sql, jstring dataSrcName);
void endJDBCSQLRequest(JNIEnv *env, jobject thisObject, jstring sql, jstring dataSrcName);

// Calls of a request to other resources; ignored outside a request.
void beginJMSRequest(JNIEnv *env, Event::JMS_ACTION act, jstring server, jstring queue, jstring sel);
void endJMSRequest(JNIEnv *env, Event::JMS_ACTION act, jstring server, jstring queue, jstring sel);
void beginJCARequest(JNIEnv *env, jstring eis);
void endJCARequest(JNIEnv *env, jstring eis);
void beginJNDIRequest(JNIEnv *env, jstring url, jstring lookup);
void endJNDIRequest(JNIEnv *env, jstring url, jstring lookup);
void beginJDORequest(JNIEnv *env, jstring className, jstring methodName, jstring argumentString);
void endJDORequest(JNIEnv *env, jstring className, jstring methodName, jstring argumentString);
void beginJavaMailRequest(JNIEnv *env, jstring url, jstring subject);
void endJavaMailRequest(JNIEnv *env, jstring url, jstring subject);
void beginXQRequest(JNIEnv *env, jstring queueName, jstring queueMgrName, jint act);
void endXQRequest(JNIEnv *env, jstring queueName, jstring queueMgrName, jint act);
// A correlated message as a begin and end pair. A token that is null, or longer than the 16 bits of its
// length on the wire, counts as empty.
void processGpsXQRequest(JNIEnv *env, jstring queueName, jstring queueMgrName, jint act, jbyteArray gpsToken);

// Work inside a request that no native reports at its usual level: objects made, and monitors entered. The
// results say whether it was recorded. Of an allocation the line is not kept.
bool beginHeapAllocation(JNIEnv *env, jint allocatingMethodId, jint allocatingLineNumber,
                         jstring instantiatedClassName);
bool endHeapAllocation(JNIEnv *env, jint allocatingMethodId, jint allocatingLineNumber,
                       jstring instantiatedClassName);
bool beginLockAcquisition(JNIEnv *env, jint lockingMethodId, jstring lockedClassName);
bool endLockAcquisition(JNIEnv *env, jint lockingMethodId, jstring lockedClassName);
bool beginLockRelease(JNIEnv *env, jint lockingMethodId, jstring lockedClassName);
bool endLockRelease(JNIEnv *env, jint lockingMethodId, jstring lockedClassName);
// Belongs to the request of the thread whose number is `waitingThreadId`; the caller's, if that is unknown.
bool beginLockContention(JNIEnv *env, jint lockingMethodId, jstring lockedClassName, jbyte owningRequestType,
                         jstring owningRequestName, jstring owningApplicationName, jint owning_method_id,
                         jint waitingThreadId);
bool endLockContention(JNIEnv *env, jint lockingMethodId, jstring lockedClassName, jbyte owningRequestType,
                       jstring owningRequestName, jstring owningApplicationName, jint owning_method_id,
                       jint waitingThreadId);

// Requests of the server itself; recorded everywhere.
// `data` is the payload as it goes out: a length of 16 bits, then three strings with such a length each. A
// null array, a `count` that it does not hold, or bytes of another form count as three empty strings.
void beginBeanRequest(JNIEnv *env, jclass thisClass, jbyteArray data, jint count);
void endBeanRequest(JNIEnv *env, jclass thisClass);
// Nothing for no values or a null array; values that are no strings count as null.
void beginGenericEvent(JNIEnv *env, jint id, jint nCtxProps, jobjectArray ctxValues);
void endGenericEvent(JNIEnv *env, jint id);
void exceptionGenericEvent(JNIEnv *env, jint id, jint nCtxProps, jobjectArray ctxValues);
// Type 45 (client) or 46 (server).
void appendCommonEvent(JNIEnv *env, Event::EventType type, Event::EventSubType subType, jstring className,
                       jstring methodName);

// Records that stand alone.
void appendExceptionEvent(JNIEnv *env, jstring exception, jstring class_name, jstring method_name,
                          jstring stacktrace);
void appendGWXEvent(JNIEnv *env, jstring gatewayName, jstring serverName, jstring progName,
                    jlong snapShotTime, jint count, jlong avgTimeTaken);
// Nothing unless all arrays have `arrLength` elements or more.
void appendXQIEvent(JNIEnv *env, jstring mgrName, jstring queueName, jlong snapShotTime, jbyteArray type,
                    jintArray count, jlongArray avgTimeTaken, jint arrLength);
void appendDroppedRecEvent(JNIEnv *env);

// Records without a thread of their own: they go to the special queue of the first event agent.
void appendSamplingRateEvent(JNIEnv *env, const int32_t *levels, int32_t useDefault); // four levels
void appendPSStatusRecEvent(JNIEnv *env, jstring mesg);
// A collection: two records. Times in milliseconds since the epoch, space in bytes.
void appendGCEvent(JNIEnv *env, jlong startTime, jlong endTime, jlong usedObjects, jlong usedObjectSpace,
                   jlong totalObjectSpace);

// The last sampling rates, kept for resending.
constexpr int SAMPLING_LEVELS = 4;
void storeSamplingRates(const int32_t *levels, int32_t useDefault);
// Fills `levels` and gives `useDefault`.
int32_t storedSamplingRates(int32_t *levels);
void resendSamplingRates(JNIEnv *env);
