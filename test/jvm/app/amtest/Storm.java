package amtest;

import am.test.families.Script;
import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.qel.morvex.norak.dc.eventagent.ThreadTimes;
import com.qel.morvex.norak.dc.networkagent.NativeNetworkAgentImpl;
import com.zykora.command.CommandAgent;
import com.zykora.probe.ProbeContextPersisterProxy;
import com.zykora.probe.ProbeController;
import com.zykora.probe.ProbeService;
import com.zykora.probe.ProbeSystem;
import com.zykora.probe.ProbeUtils;
import com.zykora.probe.ThreadManager;
import com.zykora.probe.log.ProbeLogger;
import java.io.IOException;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Random;
import java.util.concurrent.ThreadLocalRandom;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.LongAdder;
import java.util.concurrent.locks.ReentrantReadWriteLock;

/**
 * Starts, stops and misuses the collector from eight threads at random while 64 threads report requests, until it has
 * been stopped N times. Nothing may be thrown into a request, and after a stop the collector stays off until it is
 * started again, whoever enters meanwhile. Then, on the word of whoever reads along, it is started once more and reports
 * pages that must arrive. In a last part the service is shut down too, which takes its settings with it, so that nothing
 * is sent any more. Waits once more, stopped, and ends with status 5 in the midst of requests.
 *
 * <pre>
 *   amtest.Storm STOPS SEED
 *   stop             one line each
 *   calm             waits for a line on standard input
 *   told N           N pages have been reported; likewise
 *   over             likewise
 *   stops N requests N faults N back true
 * </pre>
 */
public final class Storm {
    private static final int REQUESTERS = 64;
    private static final int DRIVERS = 8;
    private static final int PAGES = 20; // of the proof that it works: a short queue holds them
    private static final int BURST = 200; // of setters, so that two of them meet, and of requests
    private static final String[] WORK = {
        "+sql -sql", "+sql +driver -driver -sql", "+wrapper -wrapper", "+jca -jca", "+jndi -jndi", "+mail -mail",
        "+jdo -jdo", "+jms3 -jms3", "+xq -xqToken", "+ejb +sql -sql -ejb", "+iiopClient -iiopClient",
        "+iiopServer -iiopServer", "+wsClient -wsClient", "+wsProvider wsProviderFault", "+generic -generic",
        "+genericMany -generic", "genericException", "exception", "gwx", "xqi", "status", "sampling", "trace",
        "+http +http -cancel", "+http -cancelled",
    };

    /** Held shared by what drivers do at random, exclusively by a cycle whose outcome is looked at. */
    private static final ReentrantReadWriteLock turn = new ReentrantReadWriteLock();
    private static final List<Thread> threads = Collections.synchronizedList(new ArrayList<>());
    private static final LongAdder requests = new LongAdder();
    private static final AtomicInteger faults = new AtomicInteger();
    private static final AtomicInteger stops = new AtomicInteger();
    private static volatile boolean calm;
    private static volatile boolean last;

    private Storm() {
    }

    public static void main(String[] args) throws Exception {
        int wanted = Integer.parseInt(args[0]);
        long seed = Long.parseLong(args[1]);
        while (!ProbeController.isNativeProbeEnabled()) {
            Thread.sleep(10);
        }
        ProbeService.stop();
        for (int i = 0; i < REQUESTERS; i++) {
            // A long storm's stops have to meet threads that are inside; beside a short one others want to work.
            boolean busy = wanted >= 100 && i % 32 == 0;
            start("request-" + i, () -> requestForEver(busy));
        }
        drive(seed, wanted * 3 / 4);
        proveWork();
        last = true;
        drive(seed + DRIVERS, wanted);
        ProbeController.stopNativeProbe();
        await("over");
        boolean back = ProbeService.start();
        System.out.println("stops " + stops + " requests " + requests.sum() + " faults " + faults + " back " + back);
        System.exit(5);
    }

    private static void drive(long seed, int wanted) {
        List<Thread> drivers = new ArrayList<>();
        for (int i = 0; i < DRIVERS; i++) {
            Random random = new Random(seed + i);
            drivers.add(start("driver-" + i, () -> drive(random, wanted)));
        }
        drivers.forEach(Storm::join);
    }

    private static void proveWork() throws IOException {
        calm = true;
        ProbeController.stopNativeProbe();
        await("calm");
        if (!ProbeService.start()) {
            fault("the collector has not come back");
        }
        for (int i = 0; i < PAGES; i++) {
            NativeEventAgentImpl.startHttpRequestNative(0, "/proof", "storm", "/proof", "user");
            NativeEventAgentImpl.finishHttpRequestNative("/proof");
        }
        await("told " + PAGES);
        ProbeService.stop();
        calm = false;
    }

    private static void await(String word) throws IOException {
        System.out.println(word);
        while (System.in.read() != '\n') {
            // the answer says no more than that it is there
        }
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

    private static void requestForEver(boolean busy) {
        Random random = ThreadLocalRandom.current();
        for (;;) {
            request(random);
            do {
                pause(busy && !calm && random.nextInt(BURST) != 0 ? 0 : 3);
            } while (calm);
        }
    }

    private static void request(Random random) {
        String url = "/storm/" + random.nextInt(1000);
        NativeEventAgentImpl.startHttpRequestNative(0, url, "storm", url, "user");
        pause(random.nextInt(100) == 0 ? 5 : 0);
        Script.run(WORK[random.nextInt(WORK.length)]);
        if (random.nextInt(8) == 0) {
            NativeEventAgentImpl.errorHttpRequestNative(url, "storm", "failed");
        } else {
            NativeEventAgentImpl.finishHttpRequestNative(url);
        }
        requests.increment();
    }

    private static void brief() {
        request(ThreadLocalRandom.current());
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
        switch (random.nextInt(15)) {
        case 0 -> ProbeUtils.customServiceStart();
        case 1, 2 -> bringUp(random);
        case 3 -> stop();
        case 4 -> ProbeController.setModLevel(1 + random.nextInt(4));
        case 5 -> burst(() -> ProbeController.setIncludeExcludeList(names(random), names(random)));
        case 6 -> burst(ProbeSystem::initializeProbe);
        case 7 -> enter(random.nextInt(3) - 1);
        case 8 -> {
            NativeEventAgentImpl.stopThreadNative(random.nextInt(2));
            NativeNetworkAgentImpl.stopThreadNative(random.nextInt(2));
        }
        case 9 -> interruptSome(random);
        case 10 -> ask(random);
        case 11 -> startSome();
        case 12 -> saveContext(random);
        case 13 -> ProbeLogger.setNativeProbeLoggingLevel(random.nextInt(10) == 0 ? 21000 : 24000);
        default -> {
            if (last && random.nextInt(10) == 0) {
                ProbeUtils.customServiceShutDown();
            }
            pause(random.nextInt(20));
        }
        }
    }

    private static void burst(Runnable setter) {
        for (int i = 0; i < BURST; i++) {
            setter.run();
        }
    }

    private static void startSome() {
        for (int i = 0; i < 10; i++) {
            start("brief", Storm::brief);
            Station.startVirtual(Storm::brief);
        }
        threads.removeIf(thread -> thread.getState() == Thread.State.TERMINATED);
    }

    private static void switchOn() {
        ProbeUtils.customServiceStart();
        ProbeController.startNativeProbe();
        ProbeSystem.initializeProbe();
    }

    private static void bringUp(Random random) {
        switchOn();
        for (int i = random.nextInt(2); i >= 0; i--) {
            enter(0);
        }
        for (int i = random.nextInt(2000); i > 0 && !ProbeController.isNativeProbeEnabled(); i--) {
            pause(1);
        }
        pause(random.nextInt(random.nextInt(8) == 0 ? 500 : 60));
    }

    /** Two threads on their way into the agents of that number, as often before as after a stop. */
    private static void enter(int id) {
        start("events", () -> NativeEventAgentImpl.startThreadNative(id));
        start("network", () -> NativeNetworkAgentImpl.startThreadNative(id));
    }

    private static void stop() {
        boolean wasOn = ProbeController.isNativeProbeEnabled();
        ProbeController.stopNativeProbe();
        if (wasOn) {
            stops.incrementAndGet();
            System.out.println("stop");
        }
    }

    /** Nobody else starts it meanwhile: what a stop leaves is off, though agents came in while it lasted. */
    private static void checkedCycle(Random random) {
        turn.writeLock().lock();
        try {
            if (random.nextInt(3) == 0) {
                switchOn(); // its agents come only while it is being stopped
            } else {
                bringUp(random);
            }
            if (random.nextBoolean()) { // then nothing holds the stop up, and requests are under way when it frees
                NativeEventAgentImpl.stopThreadNative(0);
                NativeNetworkAgentImpl.stopThreadNative(0);
            }
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
        CommandAgent.getThreadId("request-" + random.nextInt(REQUESTERS), "main");
        NativeEventAgentImpl.getThreadTimesNative(new ThreadTimes());
        NativeEventAgentImpl.getNumPendingRequests();
    }

    private static void saveContext(Random random) {
        ProbeContextPersisterProxy.synchOutProbeContext(new int[] {1, 2, 3, 4},
                new int[] {1 + random.nextInt(3), random.nextInt(2), random.nextInt(2), random.nextInt(2)}, 4);
        ProbeContextPersisterProxy.synchInProbeContext();
        ProbeContextPersisterProxy.resetProbeContext();
        ProbeContextPersisterProxy.getProbeContextLastReadFilePath();
    }

    /** None at all for 0: a thread that gives way by itself is hardly ever interrupted within a native. */
    private static void pause(long millis) {
        if (millis == 0) {
            return;
        }
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
