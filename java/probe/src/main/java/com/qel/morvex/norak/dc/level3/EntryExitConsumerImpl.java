package com.qel.morvex.norak.dc.level3;

/** The Java side of the method-level trace. */
public final class EntryExitConsumerImpl {
    private EntryExitConsumerImpl() {
    }

    /**
     * Called by the native half when a new connection needs the data of every traced class once more. No class
     * is registered for method tracing at this stage, so there is nothing to send.
     */
    public static void sendAllClassEvents() {
    }
}
