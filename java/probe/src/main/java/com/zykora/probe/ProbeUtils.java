package com.zykora.probe;

/** Birth and death of the native managers. {@link ProbeService} calls these; nobody else should. */
public final class ProbeUtils {
    private ProbeUtils() {
    }

    /** Creates the managers; nothing runs yet. True also if they exist already. */
    public static native boolean customServiceStart();

    /** Stops the probe, which waits 10 seconds if it runs, and destroys the managers for good. */
    public static native void customServiceShutDown();

    /** A line that tells when the library was built. */
    public static native String getBuildTime();

    /**
     * A token of correlation: 4 bytes, the most significant first, unique over all restarts and collectors whose regions
     * differ. Null when memory is out.
     */
    public static native byte[] getNativeGpsToken();
}
