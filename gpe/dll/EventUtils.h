// Turns one native call into an event of the calling thread: pairs begins with ends through the thread's
// request depth, decides whether the call counts, takes the clocks, copies the Java strings, and hands the
// event to the thread's queue. Here stand the families that go a way of their own; the usual ones are rows of
// `EventFamilies.h`. Called on application threads, behind the admission gate. Nothing here throws
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

// Requests over HTTP. The name "JSP_CANCEL_REQUEST" ends all levels of the thread; a failure ends a request
// in place of its finish.
void startHttpRequest(JNIEnv *env, jstring requestName, jstring applicationName, jstring url, jstring userId);
void finishHttpRequest(JNIEnv *env, jstring requestName);
void failHttpRequest(JNIEnv *env, jstring requestName, jstring applicationName, jstring err);

// Calls that go on in another server, or came from one, known by their token: a begin and an end each,
// counted without any test of the depth. A token that is null, or longer than the 16 bits of its length on
// the wire, counts as empty; one that is a text is cut as a name.
void startGpsInvocation(JNIEnv *env, jbyteArray token);
void startGpsTxmonInvocation(JNIEnv *env, jstring gateway); // of the transaction monitor; the same end
void endGpsInvocation(JNIEnv *env);
void startGpsReceipt(JNIEnv *env, jbyteArray token);
void completeGpsReceipt(JNIEnv *env);
void startGpsTextReceipt(JNIEnv *env, jstring gpsToken);
void completeGpsTextReceipt(JNIEnv *env);
// A correlated message as a begin and end pair.
void processGpsXQRequest(JNIEnv *env, jstring queueMgrName, jstring queueName, jint act, jbyteArray gpsToken);

// A monitor that is waited for. The results say whether it was recorded.
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

// Asks for a round of traces: a record of its own name, through the gate once more.
void issueTraceRequest(JNIEnv *env);

// Figures of message queues, a record that stands alone. Nothing unless all arrays have `arrLength` elements
// or more.
void appendXQIEvent(JNIEnv *env, jstring mgrName, jstring queueName, jlong snapShotTime, jbyteArray type,
                    jintArray count, jlongArray avgTimeTaken, jint arrLength);

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
// Keeps the first four of `levels`, missing ones as they were, and sends them; null changes nothing.
void takeSamplingRates(JNIEnv *env, jintArray levels, jint useDefault);

// Fills `cpuTime` (nanoseconds), `timeSec_` and `timeUSec_` of `times`; an object without them is left alone.
void fillThreadTimes(JNIEnv *env, ThreadData *td, jobject times);
