package com.zykora.probe.log;

/** Native logging as seen from Java. */
public final class ProbeLogger {
    private ProbeLogger() {
    }

    /**
     * @param level below 20000 the level of the message log; from 20000 on, the level of the traces plus 20000
     *     (21000 is everything, 22000 the usual entries and exits, 23000 starts and stops)
     */
    public static native void setNativeProbeLoggingLevel(int level);

    /** Always null: the log file is named by the logging configuration. */
    public static native String getLogFileName();

    /** Kept for old callers; nothing is written. */
    public static native void write(int level, String text);
}
