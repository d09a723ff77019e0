package com.qel.morvex.norak.toolkit.ai.gccollector;

/**
 * Reports the JVM's garbage collections on a daemon thread of its own, which sleeps until there is one. What it cannot
 * report is left out: nothing is thrown, and nothing waits for it.
 */
public final class CollectionReporter implements Runnable {
    private static final long WAIT_MILLIS = 60000;
    private static final long PAUSE_MILLIS = 1000;

    @Override
    public void run() {
        try {
            CollectionListener listener = new CollectionListener();
            listener.listen();
            while (true) {
                long from = System.nanoTime();
                boolean notified = GCEventNativeAgent.waitForNativeNotification(WAIT_MILLIS);
                listener.reportAll();
                if (!notified && System.nanoTime() - from < PAUSE_MILLIS * 1000000) {
                    Thread.sleep(PAUSE_MILLIS); // without a monitor there is no waiting
                }
            }
        } catch (Throwable over) {
            // A JVM without the management modules, or without memory: it has no reports.
        }
    }
}
