package com.qel.morvex.norak.toolkit.ai.osutils;

/** What the native half knows about the process. The natives throw {@link UnsatisfiedLinkError} without it. */
public final class OsUtils {
    private OsUtils() {
    }

    /** The process's whole command line, JVM options included; null if it could not be read. */
    public static native String[] getArgumentVectorNative();

    /** The same words; null if there are none. */
    public static native String[] getJVMParamsNative();
}
