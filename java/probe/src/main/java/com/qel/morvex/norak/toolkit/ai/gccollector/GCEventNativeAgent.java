package com.qel.morvex.norak.toolkit.ai.gccollector;

/** The natives of the thread that reports garbage collections. Nothing is thrown. */
public final class GCEventNativeAgent {
    private GCEventNativeAgent() {
    }

    /**
     * Reports one collection.
     *
     * @param startTime milliseconds since 1970, as the next
     * @param usedObjects objects that are left, 0 if unknown
     * @param usedObjectSpace bytes that they take
     * @param totalObjectSpace bytes of the heap
     * @return 1, or 0 while nothing is collected
     */
    public static native int putGCCycleToQueueNative(long startTime, long endTime, long usedObjects,
            long usedObjectSpace, long totalObjectSpace);

    /**
     * Sleeps until {@link #forceNotify} is called, or was since the last time. For one thread at a time.
     *
     * @param timeout milliseconds, 0 for no end
     * @return true if it was notified
     */
    public static native boolean waitForNativeNotification(long timeout);

    public static native void forceNotify();

    /** Whether the operator wants no collections reported. */
    public static native boolean isGCEventCollectionSuppressed();

    /** 2 if {@link JVMTIGCProcessor} has events to give, else 1. */
    public static native int getModeNative();
}
