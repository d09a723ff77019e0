package com.qel.morvex.norak.dc.eventagent;

import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;

/**
 * The natives through which instrumented code reports its work, and the pool of native event agents.
 *
 * <p>For all that report: begin and end must come on the same thread, one end for each begin; a null string is
 * taken as empty; over-long texts are cut; nothing throws, but without the agent every native throws
 * {@link UnsatisfiedLinkError}. A call may wait while the collector catches up with a backlog. Those with an
 * {@code int} result give the number of the calling thread in the collected data.
 */
public final class NativeEventAgentImpl {
    private static final List<EventListener> LISTENERS = new CopyOnWriteArrayList<EventListener>();

    private NativeEventAgentImpl() {
    }

    // HTTP. Exactly one of finish and error ends a request.

    /** @param unused any value */
    public static native int startHttpRequestNative(int unused, String requestName, String applicationName,
            String url, String userId);

    /** The name "JSP_CANCEL_REQUEST" ends all requests that are open on the thread. */
    public static native int finishHttpRequestNative(String requestName);

    public static native int errorHttpRequestNative(String requestName, String applicationName, String err);

    // SQL, connection pools, naming, mail, data objects

    public static native void beginSQLRequestNative(String sql, String dataSrcName);

    public static native void endSQLRequestNative(String sql, String dataSrcName);

    public static native void beginJCARequestNative(String poolName, String prodName);

    public static native void endJCARequestNative(String poolName, String prodName);

    public static native void beginJNDIRequestNative(String lookupName, String url);

    public static native void endJNDIRequestNative(String lookupName, String url);

    public static native void beginMailRequestNative(String subject, String mailServURL);

    public static native void endMailRequestNative(String subject, String mailServURL);

    public static native void beginJDORequestNative(String className, String methodName, String argumentString);

    public static native void endJDORequestNative(String className, String methodName, String argumentString);

    // Messaging

    /** @param jmsType 1 to 4; any other value is reported as 3 */
    public static native void beginJMSRequestNative(int jmsType, String queName, String provUrl, String sel);

    public static native void endJMSRequestNative(int jmsType, String queName, String provUrl, String sel);

    public static native void beginXQRequestNative(String queueMgrName, String queueName, int type);

    /** @param gpsToken the correlation token that went with the message; read only if {@code gpsSend} */
    public static native void endXQRequestNative(String queueMgr, String queueName, int type, byte[] gpsToken,
            boolean gpsSend);

    // Components, remote calls, web services

    /**
     * A null array, a {@code count} that it does not hold, or bytes of another form go out as three empty strings.
     *
     * @param data as {@link BeanRequest#compose} makes it
     * @param count the number of bytes of {@code data} that count
     */
    public static native int beginEJBRequestNative(byte[] data, int count);

    public static native int endEJBRequestNative();

    public static native int startIIOPClientRequestNative(String className, String methodName);

    public static native int finishIIOPClientRequestNative(String className, String methodName);

    public static native int startIIOPServerRequestNative(String className, String methodName);

    public static native int finishIIOPServerRequestNative(String className, String methodName);

    public static native void wsHelperClientRequestNative(String appName, String requestName, String url);

    public static native void wsHelperClientResponseNative(String appName, String requestName, String url);

    public static native void wsHelperClientFaultNative(String appName, String faultCode, String faultString);

    public static native void wsHelperProviderRequestNative(String appName, String requestName, String url);

    public static native void wsHelperProviderResponseNative(String appName, String requestName, String url);

    public static native void wsHelperProviderFaultNative(String appName, String faultCode, String faultString);

    public static native int genericStartEventNative(int id, int nCtxProps, Object[] ctxValues);

    public static native int genericStopEventNative(int id);

    public static native void genericExceptionEventNative(int id, int nCtxProps, Object[] ctxValues);

    // Correlation: a request that goes on in another server, or came from one

    /** @param token what {@code getNativeGpsToken} gave; null and more than 65,535 bytes count as empty */
    public static native void startGpsInvokeRequestNative(byte[] token);

    /** An invocation of the transaction monitor; it has the same end as the other. */
    public static native void startGpsTxmonInvokeRequestNative(String gateway);

    public static native void endGpsInvokeRequestNative();

    /** @param toolkitToken the token that came with the request, as for the invocation */
    public static native void startGpsReceiveRequestNative(byte[] toolkitToken);

    /** @param toolkitToken not used: the end needs none */
    public static native void completeGpsReceiveRequestNative(byte[] toolkitToken);

    /** The same for a token that is a text; it is cut as names are. */
    public static native void startGpsReceiveRequest2Native(String gpsToken);

    /** @param gpsToken not used */
    public static native void completeGpsReceiveRequest2Native(String gpsToken);

    // Allocations and monitors, inside requests only

    /**
     * @param methodId  number of the method that allocates, as it was given with its class
     * @param lineNumber not reported
     */
    public static native void heapAllocationStartNative(int methodId, int lineNumber, String className);

    public static native void heapAllocationEndNative(int methodId, int lineNumber, String className);

    /**
     * A monitor. The last five parameters count with kinds 3 and 4 only.
     *
     * @param kind 1 and 2 begin and end of its acquisition, 3 and 4 of waiting for it, 5 and 6 of its release
     * @param lockedClassName class of the object that it belongs to
     * @param lockingMethodId number of the method that takes it
     * @param owningRequestType type of the request that has it, -128 to 127 as the receiver knows them
     * @param owning_method_id number of the method that has it
     * @param waitingThreadId number of the thread that waits, to whose request the record belongs; the caller's if
     *     it is unknown
     * @return 1 if it was recorded
     */
    public static native int appendLockAnalysisEventNative(byte kind, String lockedClassName, int lockingMethodId,
            byte owningRequestType, String owningRequestName, String owningApplicationName, int owning_method_id,
            int waitingThreadId);

    // Methods and classes: see com.zykora.probe.l3trace.BcmRuntime, whose natives of like names do the same

    public static native boolean appendL3EventNative(byte isExit, int methodId);

    public static native boolean sendClassEventNative(int sequence, String className, int[] methodIds, String[] names,
            String[] signatures);

    public static native boolean sendClassUnloadEventNative(int sequence, String className, int[] methodIds);

    /**
     * An entry that was held back, with the clocks of the moment at which it happened.
     *
     * @param cpuTime CPU time of the thread in nanoseconds
     * @param timeSec seconds since 1970
     * @param timeUSec microseconds within the second
     * @return 1 if it was taken for sending
     */
    public static native int appendPendingEntryEventNative(int methodId, long cpuTime, int timeSec, int timeUSec);

    // Single records

    /** Exception text, class and method that threw it, stack trace. */
    public static native void sendExceptionNative(String ex, String cn, String mn, String st);

    /** @param snapShotTime milliseconds since 1970; {@code avgTimeTaken} in milliseconds */
    public static native void sendGWXRecordNative(String gatewayName, String serverName, String progName,
            long snapShotTime, int count, long avgTimeTaken);

    /** Nothing is sent unless all arrays are there and {@code arrLength} is positive and that of {@code type}. */
    public static native void sendXQIRecordNative(String mgrName, String queueName, long snapShotTime, byte[] type,
            int[] count, long[] avgTimeTaken, int arrLength);

    public static native void setPSStatusEventNative(String status);

    public static native void sendDroppedEventRecordNative();

    public static native void issueTraceRequestNative();

    /**
     * @param levels the sampling rates: the first 4 count, missing ones stay as they were; null changes nothing
     * @param useDefault 1 to make the receiver use its own
     */
    public static native void setSamplingRatesNative(int[] levels, int useDefault);

    // Questions about the calling thread

    /** Number of requests that are open on the thread. */
    public static native int getNumPendingRequests();

    /** The thread's number in the collected data; it gets one if it has none. */
    public static native int getEnvNative();

    /** Fills {@code times}, a {@link ThreadTimes}; null and objects without its fields are left alone. */
    public static native void getThreadTimesNative(Object times);

    // The pool of event agents

    /** Number of event agents, at least 1. */
    public static native int getAgentCountNative();

    /** Lends the calling thread to agent {@code id} (from 0); returns when the agent has stopped. */
    public static native void startThreadNative(int id);

    /** Asks agent {@code id} to stop and waits until it has left its thread. */
    public static native void stopThreadNative(int id);

    /** Events that wait in all queues. */
    public static native int getNumberOfEventsNative();

    /** The collector's estimate of its native memory, in bytes. */
    public static native int getTotalBytesConsumedNative();

    // Listeners

    /** Tells the native half which class to ask; only the first call counts. */
    public static native void initNative();

    /** Without a listener the native half does not ask. */
    public static native void indicateNumberOfListeners(int count);

    /** Switches the asking of listeners on; it starts off. */
    public static native void enableEntryExitTraceNative();

    public static native void disableEntryExitTraceNative();

    /** Adds a listener, which is asked while the entry and exit trace is on. Null is ignored. */
    public static synchronized void addListener(EventListener listener) {
        if (listener != null) {
            LISTENERS.add(listener);
            initNative();
            indicateNumberOfListeners(LISTENERS.size());
        }
    }

    public static synchronized void removeListener(EventListener listener) {
        LISTENERS.remove(listener);
        indicateNumberOfListeners(LISTENERS.size());
    }

    /**
     * Called by the native half for each request event: false drops the event, which any listener may want.
     * A listener that throws has no say.
     */
    public static boolean notifyListeners(int eventType) {
        boolean keep = true;
        for (EventListener listener : LISTENERS) {
            try {
                keep &= listener.onEvent(eventType);
            } catch (RuntimeException ignored) {
                // The event must not get lost, nor the request fail, for a listener's fault.
            }
        }
        return keep;
    }
}
