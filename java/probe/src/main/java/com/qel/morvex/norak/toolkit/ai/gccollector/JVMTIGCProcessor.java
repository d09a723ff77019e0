package com.qel.morvex.norak.toolkit.ai.gccollector;

/** Collections as the JVM's own events tell them; only in mode 2 of {@link GCEventNativeAgent#getModeNative}. */
public final class JVMTIGCProcessor {
    private JVMTIGCProcessor() {
    }

    public static native void startNative();

    /** Forgets what was not asked for, and ends the wait of {@link #getGCEvent}. */
    public static native void stopNative();

    /**
     * Waits for the next collection.
     *
     * @param out gets start and finish, milliseconds since 1970
     * @return 1, or 0 if there will be none
     */
    public static native int getGCEvent(long[] out);
}
