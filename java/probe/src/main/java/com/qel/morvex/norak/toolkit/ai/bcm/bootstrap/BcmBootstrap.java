package com.qel.morvex.norak.toolkit.ai.bcm.bootstrap;

import com.zykora.probe.ProbeService;

/**
 * The first Java class that the native half calls. It registers the natives below by itself, right before it
 * calls {@link #staticInit}; until then, and without the agent, they throw {@link UnsatisfiedLinkError}.
 */
public final class BcmBootstrap {
    private BcmBootstrap() {
    }

    /**
     * Starts the Java half. Runs on the thread that initialises the JVM and under a native lock, so it only
     * starts a daemon thread and returns.
     *
     * @throws IllegalStateException if the system property NORAK_DC_ENABLED is "false": the collector stays off
     */
    public static void staticInit() {
        if ("false".equalsIgnoreCase(System.getProperty("NORAK_DC_ENABLED"))) {
            throw new IllegalStateException("NORAK_DC_ENABLED is false");
        }
        ProbeService.launch();
    }

    /** Turns the Java half off for the rest of the process. Returns at once; what runs is stopped behind it. */
    public static void disable() {
        ProbeService.disable();
    }

    /**
     * Offers a class that is being loaded for instrumentation.
     *
     * @param bytes the class file
     * @param name the class's name with dots
     * @param loader the loader that defines it, null for the boot loader
     * @return the bytes to load in its place; null, as always now, keeps the class as it is
     */
    public static byte[] instrumentClassFromJVMTI(byte[] bytes, String name, ClassLoader loader) {
        return null;
    }

    /** As {@link #instrumentClassFromJVMTI}, for a hook that does not tell the loader. */
    public static byte[] instrumentClassFromJVMPI(byte[] bytes, String name) {
        return null;
    }

    /** Registers the natives of a class that no class loader could link by name; unknown names are ignored. */
    public static native void defineNativeMethodsForClassNative(Class<?> type, String name);

    public static native int getCurrentProcessIdNative();

    /** Always true. */
    public static native boolean isProcessAliveNative(int processId);

    /** A variable of the process environment as it is now; null for a null name or an unset variable. */
    public static native String getEnvNative(String name);

    /** The process's whole command line, JVM options included. */
    public static native String[] getJavaCommandLineArgs();

    /** CPU time of the calling thread in nanoseconds, 0 if it cannot be read. */
    public static native long getCurrentThreadCPUTime();

    /** Always 0: file modes are left alone on this platform. */
    public static native int setFileReadWriteNative(String file);
}
