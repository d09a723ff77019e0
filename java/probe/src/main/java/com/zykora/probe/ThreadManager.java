package com.zykora.probe;

/** Questions about collected threads and about the native half as a whole. */
public final class ThreadManager {
    private ThreadManager() {
    }

    /** A line that tells the native memory in bytes; null while there is no memory monitor. */
    public static native String getNativeProbeStatus();

    /** 0 running or unknown, 5 ended, 32768 suspended. */
    public static native int getNativeThreadStatus(int threadId);

    /** Marks a thread: 5 ended, 32768 suspended, 8192 no longer suspended; other values change nothing. */
    public static native void setThreadStatus(int threadId, int threadStatus);
}
