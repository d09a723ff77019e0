package com.zykora.probe;

import java.util.List;
import java.util.concurrent.CopyOnWriteArrayList;
import java.util.concurrent.CountDownLatch;

/** A native half that behaves as the real one towards its pool threads and notes the order of calls. */
class RecordingNatives extends ProbeNatives {
    final List<String> calls = new CopyOnWriteArrayList<>();
    final List<Thread> poolThreads = new CopyOnWriteArrayList<>();
    /** The call that fails, with this. */
    String failingCall = "";
    RuntimeException failure = new IllegalStateException("refused");
    int eventAgents = 1;
    volatile boolean gateOpens = true;
    private volatile CountDownLatch stopped = new CountDownLatch(1);
    private volatile CountDownLatch entered = new CountDownLatch(0);
    private volatile boolean running;

    private void note(String call) {
        calls.add(call);
        if (call.equals(failingCall)) {
            throw failure;
        }
    }

    @Override
    boolean startService() {
        note("startService");
        return true;
    }

    @Override
    void startThreadManager() {
        note("startThreadManager");
    }

    @Override
    void startProbe() {
        note("startProbe");
        stopped = new CountDownLatch(1);
        entered = new CountDownLatch(eventAgents + 1);
        running = true;
    }

    @Override
    boolean initializeProbe() {
        note(ProbeSystem.zykoraHome == null ? "initializeProbe without fields" : "initializeProbe");
        return true;
    }

    @Override
    boolean isProbeEnabled() {
        return running && gateOpens && entered.getCount() == 0;
    }

    @Override
    void stopProbe() {
        note("stopProbe");
        running = false;
        stopped.countDown();
    }

    @Override
    void shutDownService() {
        note("shutDownService");
        running = false;
        stopped.countDown();
    }

    @Override
    int eventAgentCount() {
        return eventAgents;
    }

    @Override
    void runEventAgent(int id) {
        live();
    }

    @Override
    int networkAgentCount() {
        return 1;
    }

    @Override
    void runNetworkAgent(int id) {
        live();
    }

    private void live() {
        poolThreads.add(Thread.currentThread());
        entered.countDown();
        try {
            stopped.await();
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
        }
    }
}
