package com.zykora.probe;

import com.qel.morvex.norak.toolkit.ai.bcm.bootstrap.PropertyManager;
import com.zykora.probe.support.OperatorNotes;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.locks.ReentrantLock;

/**
 * Brings the native half up and down in its order, as often as wanted until {@link #shutDown}, which is for good.
 * One lock serialises everything; the native half is never called without it but for the pools' own threads.
 * No operation throws: what fails leaves the server without a collector.
 */
class ProbeLifeCycle {
    private static final long GATE_WAIT_MILLIS = 5000;
    private static final long GATE_POLL_MILLIS = 10;
    private static final long POOL_END_MILLIS = 5000;
    private static final long SHUT_DOWN_LOCK_SECONDS = 10;

    private enum State { NEW, STOPPED, RUNNING, GONE }

    private final ReentrantLock lock = new ReentrantLock();
    private final ProbeNatives natives;
    private final AgentPool eventPool;
    private final AgentPool networkPool;
    private volatile State state = State.NEW;
    /** No further start: the end has come, or there is no agent to start. */
    private volatile boolean closing;

    ProbeLifeCycle(final ProbeNatives natives) {
        this.natives = natives;
        eventPool = new AgentPool("am-event-agent-") {
            @Override
            int size() {
                return natives.eventAgentCount();
            }

            @Override
            void run(int id) {
                natives.runEventAgent(id);
            }
        };
        networkPool = new AgentPool("am-network-agent-") {
            @Override
            int size() {
                return natives.networkAgentCount();
            }

            @Override
            void run(int id) {
                natives.runNetworkAgent(id);
            }
        };
    }

    AgentPool eventPool() {
        return eventPool;
    }

    AgentPool networkPool() {
        return networkPool;
    }

    boolean isRunning() {
        return state == State.RUNNING && !closing;
    }

    /** Starts the probe and waits, for some seconds at most, until data can flow. True if it does then. */
    boolean start() {
        lock.lock();
        try {
            if (state != State.RUNNING && !closing) {
                bringUp();
            }
            return isRunning() && natives.isProbeEnabled();
        } catch (LinkageError noAgent) {
            closing = true;
        } catch (Throwable failed) {
            if (!closing) {
                OperatorNotes.once("The data collector could not be started: " + failed);
            }
        } finally {
            lock.unlock();
        }
        return false;
    }

    private void bringUp() {
        if (state == State.NEW) {
            if (!natives.startService()) {
                return;
            }
            state = State.STOPPED;
            natives.startThreadManager();
        }
        if (closing) { // and the one who closes may have given up waiting for this start
            state = State.GONE;
            natives.shutDownService();
            return;
        }
        Map<String, String> files = PropertyManager.collectorProperties();
        ProbeSystem.describeServer(files);
        natives.startProbe();
        state = State.RUNNING;
        boolean whole = false;
        try {
            whole = startThreads(files);
        } finally {
            if (!whole) { // half a start is taken back
                halt();
            }
        }
        awaitGate();
    }

    private boolean startThreads(Map<String, String> files) {
        // A refusal leaves the initial records less complete; requests are collected all the same.
        natives.initializeProbe();
        eventPool.setPriority(ProbeSystem.number(files, "ea.thread.priority", 5));
        networkPool.setPriority(ProbeSystem.number(files, "na.thread.priority", 7));
        if (!eventPool.start() || !networkPool.start()) {
            OperatorNotes.once("The data collector's threads of an earlier start have not ended");
            return false;
        }
        return true;
    }

    /** A stop right after the start would otherwise overtake threads that are still on their way in. */
    private void awaitGate() {
        long end = System.nanoTime() + TimeUnit.MILLISECONDS.toNanos(GATE_WAIT_MILLIS);
        try {
            while (!closing && !natives.isProbeEnabled() && System.nanoTime() - end < 0) {
                Thread.sleep(GATE_POLL_MILLIS);
            }
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Stops the probe so that it can be started again; the native half takes 10 seconds for this. */
    void stop() {
        lock.lock();
        try {
            halt();
        } catch (Throwable failed) {
            OperatorNotes.once("The data collector could not be stopped: " + failed);
        } finally {
            lock.unlock();
        }
    }

    private void halt() {
        if (state != State.RUNNING) {
            return;
        }
        natives.stopProbe();
        state = State.STOPPED;
        try {
            eventPool.join(POOL_END_MILLIS);
            networkPool.join(POOL_END_MILLIS);
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }

    /** Stops what runs and gives the native managers up for good. A start or stop under way gets some seconds first. */
    void shutDown() {
        closing = true;
        boolean locked = false;
        try {
            locked = lock.tryLock(SHUT_DOWN_LOCK_SECONDS, TimeUnit.SECONDS);
            if (state == State.STOPPED || state == State.RUNNING) {
                state = State.GONE;
                natives.shutDownService();
            }
        } catch (Throwable failed) {
            // The process is on its way out, or the collector is unwanted: nobody is left to tell.
        } finally {
            state = State.GONE;
            if (locked) {
                lock.unlock();
            }
        }
    }
}
