package amtest;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.qel.morvex.norak.dc.networkagent.NativeNetworkAgentImpl;
import com.zykora.probe.ProbeController;
import com.zykora.probe.ProbeService;
import com.zykora.probe.ProbeSystem;
import com.zykora.probe.ProbeUtils;
import com.zykora.probe.ThreadManager;
import java.util.ArrayList;
import java.util.List;
import java.util.Random;
import java.util.concurrent.ThreadLocalRandom;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.LongAdder;
import java.util.concurrent.locks.ReentrantReadWriteLock;

/**
 * Starts, stops and misuses the collector from eight threads at random while 64 threads report requests, until it has
 * been stopped N times. Nothing may be thrown into a request, and after a stop the collector stays off until it is
 * started again, whoever enters meanwhile. Ends with status 5 when a clean start brings it back.
 *
 * <pre>
 *   amtest.Storm STOPS SEED
 *   stops N requests N faults N back true
 * </pre>
 */
public final class Storm {
    private static final int REQUESTERS = 64;
    private static final int DRIVERS = 8;
    private static final long LEAST_STOP_NANOS = 20_000_000; // internal.probe.stop.wait of the run: a real stop

    /** Held shared by what drivers do at random, exclusively by a cycle whose outcome is looked at. */
    private static final ReentrantReadWriteLock turn = new ReentrantReadWriteLock();
    private static final List<Thread> threads = java.util.Collections.synchronizedList(new ArrayList<>());
    private static final LongAdder requests = new LongAdder();
    private static final AtomicInteger faults = new AtomicInteger();
    private static final AtomicInteger stops = new AtomicInteger();
    private static volatile boolean over;

    private Storm() {
    }

    public static void main(String[] args) throws Exception {
        int wanted = Integer.parseInt(args[0]);
        long seed = Long.parseLong(args[1]);
        while (!ProbeController.isNativeProbeEnabled()) {
            Thread.sleep(10);
        }
        ProbeService.stop();
        List<Thread> drivers = new ArrayList<>();
        for (int i = 0; i < REQUESTERS; i++) {
            start("request-" + i, Storm::requestForEver);
        }
        for (int i = 0; i < DRIVERS; i++) {
            Random random = new Random(seed + i);
            drivers.add(start("driver-" + i, () -> drive(random, wanted)));
        }
        for (Thread driver : drivers) {
            driver.join();
        }
        ProbeController.stopNativeProbe();
        over = true;
        boolean back = ProbeService.start();
        System.out.println("stops " + stops + " requests " + requests.sum() + " faults " + faults + " back " + back);
        System.exit(5);
    }

    private static Thread start(String name, Runnable work) {
        Thread thread = new Thread(() -> {
            try {
                work.run();
            } catch (Throwable harm) {
                fault(harm.toString());
            }
        }, name);
        thread.setDaemon(true);
        threads.add(thread);
        thread.start();
        return thread;
    }

    private static void fault(String text) {
        if (faults.incrementAndGet() <= 5) {
            System.err.println("storm: " + text);
        }
    }

    // ---------------------------------------------------------------- requests

    private static void requestForEver() {
        Random random = ThreadLocalRandom.current();
        while (!over) {
            request(random);
            pause(1);
        }
    }

    private static void request(Random random) {
        int expected = random.nextInt(1000);
        String url = "/storm/" + expected;
        NativeEventAgentImpl.startHttpRequestNative(0, url, "storm", url, "user");
        int answer = nested(random, expected);
        if (random.nextInt(8) == 0) {
            NativeEventAgentImpl.errorHttpRequestNative(url, "storm", "failed");
        } else {
            NativeEventAgentImpl.finishHttpRequestNative(url);
        }
        if (answer != expected) {
            fault("wrong answer");
        }
        requests.increment();
    }

    private static int nested(Random random, int value) {
        String text = "SELECT " + value;
        switch (random.nextInt(7)) {
        case 0:
            NativeEventAgentImpl.beginJMSRequestNative(3, text, "provider", null);
            NativeEventAgentImpl.endJMSRequestNative(3, text, "provider", null);
            break;
        case 1:
            NativeEventAgentImpl.beginJNDIRequestNative(text, "url");
            NativeEventAgentImpl.endJNDIRequestNative(text, "url");
            break;
        case 2:
            NativeEventAgentImpl.genericStartEventNative(1, 2, new Object[] {text, null});
            NativeEventAgentImpl.genericStopEventNative(1);
            break;
        case 3:
            NativeEventAgentImpl.sendExceptionNative("E", "C", "m", text);
            break;
        default:
            NativeEventAgentImpl.beginSQLRequestNative(text, "db");
            NativeEventAgentImpl.endSQLRequestNative(text, "db");
            break;
        }
        return value;
    }

    // ---------------------------------------------------------------- drivers

    private static void drive(Random random, int wanted) {
        while (stops.get() < wanted) {
            if (random.nextInt(6) == 0) {
                checkedCycle(random);
                continue;
            }
            turn.readLock().lock();
            try {
                act(random);
            } finally {
                turn.readLock().unlock();
            }
        }
    }

    private static void act(Random random) {
        switch (random.nextInt(13)) {
        case 0:
            ProbeUtils.customServiceStart();
            break;
        case 1:
        case 2:
            bringUp(random);
            break;
        case 3:
            stop();
            break;
        case 4:
            ProbeController.setModLevel(1 + random.nextInt(4));
            break;
        case 5:
            ProbeController.setIncludeExcludeList(names(random), names(random));
            break;
        case 6:
            ProbeSystem.initializeProbe();
            break;
        case 7:
            enter(random.nextInt(3) - 1);
            break;
        case 8:
            NativeEventAgentImpl.stopThreadNative(random.nextInt(2));
            NativeNetworkAgentImpl.stopThreadNative(random.nextInt(2));
            break;
        case 9:
            interruptSome(random);
            break;
        case 10:
            ask(random);
            break;
        case 11:
            for (int i = 0; i < 10; i++) {
                start("brief", () -> request(ThreadLocalRandom.current()));
            }
            threads.removeIf(thread -> thread.getState() == Thread.State.TERMINATED);
            break;
        default:
            if (random.nextInt(10) == 0) {
                ProbeUtils.customServiceShutDown();
            }
            pause(random.nextInt(20));
            break;
        }
    }

    private static void bringUp(Random random) {
        ProbeUtils.customServiceStart();
        ProbeController.startNativeProbe();
        ProbeSystem.initializeProbe();
        for (int i = random.nextInt(2); i >= 0; i--) {
            enter(0);
        }
        pause(random.nextInt(60));
    }

    /** Two threads on their way into the agents of that number, as often before as after a stop. */
    private static void enter(int id) {
        start("events", () -> NativeEventAgentImpl.startThreadNative(id));
        start("network", () -> NativeNetworkAgentImpl.startThreadNative(id));
    }

    private static void stop() {
        long from = System.nanoTime();
        ProbeController.stopNativeProbe();
        if (System.nanoTime() - from >= LEAST_STOP_NANOS) {
            stops.incrementAndGet();
        }
    }

    /** Nobody else starts it meanwhile: what a stop leaves is off, though agents came in while it lasted. */
    private static void checkedCycle(Random random) {
        turn.writeLock().lock();
        try {
            bringUp(random);
            Thread late = start("late", () -> {
                pause(5);
                enter(0);
            });
            stop();
            join(late);
            enter(0);
            pause(2);
            if (ProbeController.isNativeProbeEnabled()) {
                fault("the collector is on after its stop");
            }
        } finally {
            turn.writeLock().unlock();
        }
    }

    private static String[] names(Random random) {
        if (random.nextInt(4) == 0) {
            return null;
        }
        String[] names = new String[random.nextInt(20)];
        for (int i = 0; i < names.length; i++) {
            names[i] = random.nextInt(5) == 0 ? null : "name" + random.nextInt();
        }
        return names;
    }

    private static void interruptSome(Random random) {
        Thread[] now = threads.toArray(new Thread[0]);
        for (int i = 0; i < 5; i++) {
            now[random.nextInt(now.length)].interrupt();
        }
    }

    private static void ask(Random random) {
        NativeEventAgentImpl.getNumberOfEventsNative();
        NativeEventAgentImpl.getTotalBytesConsumedNative();
        NativeEventAgentImpl.getAgentCountNative();
        NativeNetworkAgentImpl.getNetAgentCountNative();
        ThreadManager.getNativeProbeStatus();
        ThreadManager.setThreadStatus(NativeEventAgentImpl.getEnvNative(), 1 << random.nextInt(16));
        ThreadManager.getNativeThreadStatus(random.nextInt());
        ProbeController.getMonitoringLevel();
    }

    private static void pause(long millis) {
        try {
            Thread.sleep(millis);
        } catch (InterruptedException shorter) {
            // A driver's doing.
        }
    }

    private static void join(Thread thread) {
        while (thread.isAlive()) {
            pause(1);
        }
    }
}
