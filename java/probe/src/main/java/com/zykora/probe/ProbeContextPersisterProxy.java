package com.zykora.probe;

/**
 * The monitoring context that survives a restart: four numbers, in this order and with the ids 1 to 4: probe
 * level (1 to 3), level is the default, method collection suppressed, GC collection suppressed (0 or 1 each).
 */
public final class ProbeContextPersisterProxy {
    private ProbeContextPersisterProxy() {
    }

    /** Reads the file; the four numbers, or null without a context. The running probe does not change. */
    public static native int[] initProbeContext();

    /** Reads the file and makes the running probe follow it; the four numbers, or null without a context. */
    public static native int[] synchInProbeContext();

    /** Sets {@code count} elements and writes the file. Unknown ids are skipped. Always true. */
    public static native boolean synchOutProbeContext(int[] ids, int[] values, int count);

    /** Forgets an earlier failure to read or write; false without a context. */
    public static native boolean resetProbeContext();

    /** Path of the file that was read last, or null. */
    public static native String getProbeContextLastReadFilePath();
}
