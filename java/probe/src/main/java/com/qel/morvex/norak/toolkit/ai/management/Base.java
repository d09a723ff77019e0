package com.qel.morvex.norak.toolkit.ai.management;

/** Access to the native thread manager. */
public final class Base {
    private Base() {
    }

    /** Creates the native thread manager if it does not exist yet; it is not started by this. */
    public static native void startNativeThreadManager();
}
