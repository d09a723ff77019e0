package com.zykora.probe;

import java.util.ArrayList;
import java.util.List;

/**
 * The daemon threads that are lent to one kind of native agent. Each stays in native code until the native half
 * lets it go. The priority may be set at any time, by any thread, also before the threads exist.
 */
abstract class AgentPool {
    private final String threadName;
    private final List<Thread> threads = new ArrayList<Thread>();
    private int priority = Thread.NORM_PRIORITY;

    AgentPool(String threadName) {
        this.threadName = threadName;
    }

    /** Number of native agents. */
    abstract int size();

    /** The life of agent {@code id}; runs on the pool's thread. */
    abstract void run(int id);

    /** Starts a thread for each agent. False, with none started, while one of an earlier start still lives. */
    synchronized boolean start() {
        for (Thread thread : threads) {
            if (thread.isAlive()) {
                return false;
            }
        }
        threads.clear();
        int count = size();
        for (int id = 0; id < count; id++) {
            Thread thread = newThread(id);
            threads.add(thread);
            thread.start();
        }
        return true;
    }

    /** The thread outlives whoever started it, so it must not hold on to anything of that application. */
    private Thread newThread(final int id) {
        Thread thread = detachedThread(new Runnable() {
            @Override
            public void run() {
                runQuietly(id);
            }
        }, threadName + id);
        thread.setDaemon(true);
        thread.setPriority(priority);
        thread.setContextClassLoader(null);
        return thread;
    }

    /** In the topmost group and without its maker's inheritable values: Java 8 and security managers refuse that. */
    private static Thread detachedThread(Runnable life, String name) {
        try {
            ThreadGroup top = Thread.currentThread().getThreadGroup();
            while (top.getParent() != null) {
                top = top.getParent();
            }
            return Thread.class
                    .getConstructor(ThreadGroup.class, Runnable.class, String.class, long.class, boolean.class)
                    .newInstance(top, life, name, 0L, false);
        } catch (ReflectiveOperationException | RuntimeException refused) {
            return new Thread(life, name);
        }
    }

    private void runQuietly(int id) {
        try {
            run(id);
        } catch (Throwable lost) {
            // One agent less; an uncaught exception would only reach the server's console.
        }
    }

    /** Sets the priority, clamped to the range of {@link Thread}, of present and future threads. Never throws. */
    synchronized void setPriority(int wanted) {
        priority = Math.max(Thread.MIN_PRIORITY, Math.min(Thread.MAX_PRIORITY, wanted));
        for (Thread thread : threads) {
            try {
                thread.setPriority(priority);
            } catch (RuntimeException refused) {
                // The pump runs at any priority.
            }
        }
    }

    /** Waits until the threads have ended, at most {@code millis} for each. */
    void join(long millis) throws InterruptedException {
        for (Thread thread : snapshot()) {
            thread.join(millis);
        }
    }

    private synchronized List<Thread> snapshot() {
        return new ArrayList<Thread>(threads);
    }
}
