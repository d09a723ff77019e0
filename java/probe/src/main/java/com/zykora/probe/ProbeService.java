package com.zykora.probe;

import com.qel.morvex.norak.toolkit.ai.gccollector.CollectionReporter;
import java.util.concurrent.TimeUnit;

/**
 * The collector as a service of this JVM. The agent starts it by itself; {@link #stop} and {@link #start} may
 * follow each other any number of times. Stopped for good by {@link #disable} and by the end of the JVM, whose
 * death would otherwise wait a minute for it. That end waits for the stop, but not for ever: a call that hangs on
 * the way keeps no finished process. No operation throws; all may be called by any thread.
 */
public final class ProbeService {
    static final ProbeLifeCycle LIFE_CYCLE = new ProbeLifeCycle(new ProbeNatives());
    /** A start under way, the grace for requests in flight and native threads that are stuck fit into it. */
    static final long END_WAIT_MILLIS = 25000;
    private static boolean hooked;
    private static boolean reporting;

    private ProbeService() {
    }

    /** Starts the service on a daemon thread and returns at once. */
    public static void launch() {
        runBehind("am-starter", new Runnable() {
            @Override
            public void run() {
                start();
            }
        });
    }

    /**
     * Starts the service and waits some seconds at most until events are taken.
     *
     * @return true if it runs; false without the native half, after its end, or if it could not start
     */
    public static boolean start() {
        boolean runs = hookShutdown() && LIFE_CYCLE.start();
        if (runs) {
            reportCollections();
        }
        return runs;
    }

    /** From the first start on; while the service is stopped the native half takes none. */
    private static synchronized void reportCollections() {
        if (!reporting) {
            reporting = runBehind("am-collections", new CollectionReporter()) != null;
        }
    }

    /** Stops the service, which takes 10 seconds: requests in flight are seen to their end. */
    public static void stop() {
        LIFE_CYCLE.stop();
    }

    /** True between start and stop. */
    public static boolean isRunning() {
        return LIFE_CYCLE.isRunning();
    }

    /** Ends the service for the rest of the process; returns at once and stops what runs behind the caller. */
    public static void disable() {
        runBehind("am-stopper", SHUT_DOWN);
    }

    private static final Runnable SHUT_DOWN = new Runnable() {
        @Override
        public void run() {
            LIFE_CYCLE.shutDown();
        }
    };

    /** Null if there is no thread to be had. */
    private static Thread runBehind(String name, Runnable work) {
        try {
            Thread thread = newThread(work, name);
            thread.setDaemon(true);
            thread.start();
            return thread;
        } catch (Throwable refused) {
            return null;
        }
    }

    /** Runs {@code work} behind the caller and waits for it that long at most; an interrupt does not end the wait. */
    static void runBounded(Runnable work, long millis) {
        Thread worker = runBehind("am-stopper", work);
        if (worker == null) {
            return; // the death of the JVM waits a minute at most, this work perhaps for ever
        }
        long end = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(millis);
        boolean interrupted = false;
        for (long rest = millis; rest > 0 && worker.isAlive();
                rest = TimeUnit.NANOSECONDS.toMillis(end - System.nanoTime())) {
            try {
                worker.join(rest);
            } catch (InterruptedException e) {
                interrupted = true;
            }
        }
        if (interrupted) {
            Thread.currentThread().interrupt();
        }
    }

    private static final Runnable END = new Runnable() {
        @Override
        public void run() {
            runBounded(SHUT_DOWN, END_WAIT_MILLIS);
        }
    };

    /** A thread that does not hold the classes of the application that happens to call. */
    private static Thread newThread(Runnable work, String name) {
        Thread thread = new Thread(work, name);
        thread.setContextClassLoader(null);
        return thread;
    }

    /** False if the JVM is already on its way out. */
    private static synchronized boolean hookShutdown() {
        if (!hooked) {
            try {
                Runtime.getRuntime().addShutdownHook(newThread(END, "am-shutdown"));
                hooked = true;
            } catch (IllegalStateException tooLate) {
                return false;
            } catch (SecurityException refused) {
                // The collector runs; only the end of the JVM takes longer.
                hooked = true;
            } catch (Throwable noMemory) {
                return false;
            }
        }
        return hooked;
    }
}
