package com.zykora.probe;

/**
 * The collector as a service of this JVM. The agent starts it by itself; {@link #stop} and {@link #start} may
 * follow each other any number of times. Stopped for good by {@link #disable} and by the end of the JVM, whose
 * death would otherwise wait a minute for it. No operation throws; all may be called by any thread.
 */
public final class ProbeService {
    static final ProbeLifeCycle LIFE_CYCLE = new ProbeLifeCycle(new ProbeNatives());
    private static boolean hooked;

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
        return hookShutdown() && LIFE_CYCLE.start();
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

    private static void runBehind(String name, Runnable work) {
        try {
            Thread thread = newThread(work, name);
            thread.setDaemon(true);
            thread.start();
        } catch (Throwable refused) {
            // No thread to be had: the server runs on without a collector.
        }
    }

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
                Runtime.getRuntime().addShutdownHook(newThread(SHUT_DOWN, "am-shutdown"));
                hooked = true;
            } catch (IllegalStateException tooLate) {
                return false;
            } catch (SecurityException refused) {
                // The collector runs; only the end of the JVM takes longer.
                hooked = true;
            }
        }
        return hooked;
    }
}
