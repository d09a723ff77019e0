package com.zykora.probe;

/** Control of the running probe. Monitoring levels are 1001 requests, 1002 components, 1003 methods. */
public final class ProbeController {
    private ProbeController() {
    }

    /**
     * Starts the managers. Data flows once the pool threads have entered the native half as well.
     *
     * @throws RuntimeException if the JVM is shutting down
     */
    public static native void startNativeProbe();

    /** Closes the gate, waits 10 seconds for requests in flight, stops the managers and their pool threads. */
    public static native void stopNativeProbe();

    /** 1001 to 1003, or 0 before the level has been read. */
    public static native int getMonitoringLevel();

    /** Sets the level, given as 1001 to 1003 or 1 to 3, and keeps it over a restart. False if nothing changed. */
    public static native boolean setModLevel(int newMonitoringLevel);

    /** True while events are taken. */
    public static native boolean isNativeProbeEnabled();

    public static native boolean restartOnToFromL1();

    public static native boolean isJvmpiEnabled();

    public static native boolean initializeJVMPI();

    /** Replaces the class filter. An entry's last character is a wildcard and not compared; null empties a list. */
    public static native void setIncludeExcludeList(String[] include, String[] exclude);

    /**
     * Gives this collector its region: the topmost bits of all its tokens of correlation. To be called before the first
     * token is asked for; only the first call counts.
     *
     * @param regMask the bits as '0' and '1', the topmost first, 32 at most; null is empty
     * @throws RuntimeException if the JVM is shutting down
     */
    public static native void setupGps(String regMask);
}
