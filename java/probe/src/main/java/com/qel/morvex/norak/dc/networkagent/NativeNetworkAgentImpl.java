package com.qel.morvex.norak.dc.networkagent;

/**
 * The pool of native network agents, each of which needs a Java thread to live on, and the two traces of what
 * goes out. A trace reaches the one {@link TraceListener} that is set; with none it is dropped.
 */
public final class NativeNetworkAgentImpl {
    private static volatile TraceListener traceListener;

    private NativeNetworkAgentImpl() {
    }

    /** Number of network agents, each of which wants a thread: 0 to 256, as the configuration says. */
    public static native int getNetAgentCountNative();

    /**
     * Lends the calling thread to agent {@code id} (from 0); returns when the agent has stopped, at once if there
     * is no such agent, it already has a thread, or the pool is closed.
     */
    public static native void startThreadNative(int id);

    /** Asks agent {@code id} to stop and waits until it has left its thread; nothing if the pool is closed. */
    public static native void stopThreadNative(int id);

    /** Switches the record trace on with 1, off with any other value. */
    public static native void setTrace(byte flag);

    /** Switches the buffer trace on with 1, off with any other value. */
    public static native void setNetworkTrace(byte flag);

    /** Sets the receiver of both traces; null drops them. */
    public static void setTraceListener(TraceListener listener) {
        traceListener = listener;
    }

    /** Called by the native half for each record while the record trace is on. */
    public static void writeTraceEntry(byte type, int threadId, byte depth, byte[] record) {
        TraceListener listener = traceListener;
        if (listener != null) {
            listener.record(type, threadId, depth, record);
        }
    }

    /** Called by the native half for each buffer while the buffer trace is on. */
    public static void writeTraceEntry(byte[] data) {
        TraceListener listener = traceListener;
        if (listener != null) {
            listener.buffer(data);
        }
    }
}
