package com.zykora.command;

/**
 * The natives through which instrumented code reports calls of its methods, and the classes that these belong to. They
 * throw nothing; without the agent each throws {@link UnsatisfiedLinkError}.
 */
public final class MethodLevelModule {
    private MethodLevelModule() {
    }

    /** @param methodId the number that the method was given with its class */
    public static native void beforeMethod(int methodId);

    public static native void afterMethod(int methodId);

    /**
     * Registers a class under a number of its own, and tells of it. Nothing happens unless all arrays are there and of
     * one length.
     *
     * @param className with slashes; texts are cut at 65,535 bytes, a null element is empty
     * @param methodIds unique over all classes
     */
    public static native void initializeClass(String className, int[] methodIds, String[] names, String[] signatures);

    /** Tells that a registered class is gone. The one that was registered first of all stays. */
    public static native void unloadClass(String className);
}
