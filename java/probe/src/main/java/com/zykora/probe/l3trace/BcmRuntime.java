package com.zykora.probe.l3trace;

/**
 * The natives of the tracing runtime, which numbers its classes itself. They throw nothing; the result says whether it
 * was taken for sending.
 */
public final class BcmRuntime {
    private BcmRuntime() {
    }

    /**
     * @param isExit 0 for an entry, anything else for an exit
     * @param methodId the number that the method was given with its class
     */
    public static native boolean appendL3Event(byte isExit, int methodId);

    /**
     * A class that was loaded. False unless all arrays are there and of one length; a null element is empty, and texts
     * are cut at 65,535 bytes. A class that takes more than 8 MB, of which each method has 56 bytes, is not told.
     *
     * @param sequence the class's number
     * @param className with slashes
     */
    public static native boolean sendClassEventNative(int sequence, String className, int[] methodIds, String[] names,
            String[] signatures);

    /** The same class is gone. */
    public static native boolean sendClassUnloadEventNative(int sequence, String className, int[] methodIds);
}
