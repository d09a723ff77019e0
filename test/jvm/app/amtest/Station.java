package amtest;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.qel.morvex.norak.dc.eventagent.PortalNativeEventAgentImpl;
import com.qel.morvex.norak.dc.level3.EntryExitConsumerImpl;
import com.sun.net.httpserver.HttpExchange;
import com.sun.net.httpserver.HttpServer;
import com.zykora.probe.ProbeController;
import com.zykora.probe.ProbeService;
import com.zykora.probe.log.ProbeLogger;
import java.io.IOException;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.Executors;
import java.util.concurrent.SynchronousQueue;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.concurrent.atomic.LongAccumulator;
import java.util.concurrent.atomic.LongAdder;
import java.util.function.IntUnaryOperator;

/**
 * A server that starts fast and ends in any wanted way. It reports its requests as instrumented code does, calling
 * the collector's natives directly, and counts everything that they throw. Without a collector it serves the same.
 *
 * <pre>
 * /work?100        100 requests with two nested statements each
 * /taken?20        20 times 250 such requests, each time until a quarter of a queue at most is left; the milliseconds
 * /threads?1000    1000 threads, one after the other, with one request each
 * /virtual?1000    the same at once on virtual threads, which wait within the request; 0 where the JVM has none
 * /brief?1000      the same without waiting, some at a time
 * /waiting?1000    the same: all of them wait within their first statement until /release?0
 * /load?8          8 threads that go on making such requests until the end
 * /slow?4          the same, with 20 ms within each statement
 * /priorities?0    sum of the priorities of the event agents' threads and, times 100, of the network agents'
 * /during?1008     waits until the priorities are such; the requests of the next 100 ms, or -1 if they changed
 * /state           "requests R failures F longest M ms"
 * /cycle?1         stops and starts the collector
 * /interrupted?1   stops the collector on an interrupted thread, with 1 a virtual one where the JVM has such; the
 *                  milliseconds, or -1 if the interrupt is lost
 * /enabled?0       1 while events are taken
 * /level?1003      changes the monitoring level; 1 if it changed
 * /log?22000       changes the native log level
 * /collect?1       asks the JVM for a collection
 * /names?3         loads two classes, unloads one, and gives methods of a portal their names: the first one twice, the last one null, and one that has no key
 * /return?0 /throw?0 /exit?N /halt?N      ends the process
 * </pre>
 */
public final class Station {
    static final LongAdder requests = new LongAdder();
    static final LongAdder begun = new LongAdder(); // events that the collector was told of
    static final LongAdder failures = new LongAdder();
    private static final LongAccumulator longestMicros = new LongAccumulator(Math::max, 0);
    private static final SynchronousQueue<Runnable> ending = new SynchronousQueue<>();
    private static final CountDownLatch released = new CountDownLatch(1);
    private static final int QUARTER = 1250;
    private static volatile List<Thread> waiting = List.of();

    private Station() {
    }

    /** With any argument it ends at once. */
    public static void main(String[] args) throws Exception {
        if (args.length > 0) {
            return;
        }
        HttpServer server = HttpServer.create(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), 0);
        server.setExecutor(Executors.newFixedThreadPool(4, Station::daemon));
        on(server, "/work", Station::work);
        on(server, "/load", n -> load(n, 0));
        on(server, "/slow", n -> load(n, 20));
        on(server, "/priorities", n -> priorities());
        on(server, "/during", Station::during);
        on(server, "/threads", Station::oneByOne);
        on(server, "/virtual", n -> virtual(n, n, () -> pause(20)));
        on(server, "/brief", n -> virtual(n, 500, () -> { }));
        on(server, "/waiting", Station::waiting);
        on(server, "/release", n -> release());
        server.createContext("/state", call -> answer(call, state()));
        on(server, "/cycle", n -> cycle());
        on(server, "/interrupted", Station::interrupted);
        on(server, "/enabled", n -> enabled());
        on(server, "/taken", Station::taken);
        on(server, "/level", n -> ProbeController.setModLevel(n) ? 1 : 0);
        on(server, "/log", Station::log);
        on(server, "/names", Station::names);
        on(server, "/collect", Station::collect);
        onEnd(server, "/return", n -> () -> { });
        onEnd(server, "/throw", n -> () -> {
            throw new IllegalStateException("thrown on purpose");
        });
        onEnd(server, "/exit", n -> () -> System.exit(n));
        onEnd(server, "/halt", n -> () -> Runtime.getRuntime().halt(n));
        server.start();
        System.out.println("station listening on " + server.getAddress().getPort());
        Runnable end = ending.take();
        server.stop(1);
        end.run();
    }

    private static int collect(int count) {
        System.gc();
        return count;
    }

    private static int names(int count) {
        EntryExitConsumerImpl.classLoaded(7, "shop/Kept", new int[] {1}, new String[] {"m"}, new String[] {"()V"});
        EntryExitConsumerImpl.classLoaded(8, "shop/Gone", new int[0], new String[0], new String[0]);
        EntryExitConsumerImpl.classUnloaded(8);
        PortalNativeEventAgentImpl.pushMonitoredMethodToNative((byte) 0, "without a key");
        PortalNativeEventAgentImpl.pushMonitoredMethodToNative((byte) 1, "render 1");
        for (int i = 1; i <= count; i++) {
            PortalNativeEventAgentImpl.pushMonitoredMethodToNative((byte) i, i < count ? "render " + i : null);
        }
        return count;
    }

    private interface Ending {
        Runnable with(int status);
    }

    private static Thread daemon(Runnable work) {
        Thread thread = new Thread(work, "station");
        thread.setDaemon(true);
        return thread;
    }

    private static void on(HttpServer server, String path, IntUnaryOperator work) {
        server.createContext(path, call -> answer(call, Integer.toString(unlessAbsent(work, argument(call)))));
    }

    /** 0 where there is no collector to ask. */
    private static int unlessAbsent(IntUnaryOperator work, int argument) {
        try {
            return work.applyAsInt(argument);
        } catch (LinkageError absent) {
            return 0;
        }
    }

    static int enabled() {
        return unlessAbsent(n -> ProbeController.isNativeProbeEnabled() ? 1 : 0, 0);
    }

    private static void onEnd(HttpServer server, String path, Ending ending) {
        server.createContext(path, call -> {
            answer(call, "ending");
            Station.ending.offer(ending.with(argument(call)));
        });
    }

    private static int argument(HttpExchange call) {
        return Integer.parseInt(call.getRequestURI().getQuery());
    }

    private static void answer(HttpExchange call, String text) throws IOException {
        byte[] body = (text + "\n").getBytes(StandardCharsets.US_ASCII);
        call.sendResponseHeaders(200, body.length);
        call.getResponseBody().write(body);
        call.close();
    }

    private static int work(int count) {
        for (int i = 0; i < count; i++) {
            request(0);
        }
        return count;
    }

    private static int taken(int turns) {
        long from = System.nanoTime();
        for (int i = 0; i < turns; i++) {
            work(250);
            while (NativeEventAgentImpl.getNumberOfEventsNative() > QUARTER) {
                pause(1);
            }
        }
        return (int) ((System.nanoTime() - from) / 1000000);
    }

    private static int oneByOne(int count) {
        for (int i = 0; i < count; i++) {
            Thread thread = daemon(() -> request(0));
            thread.start();
            await(thread);
        }
        return count;
    }

    private static int virtual(int count, int atATime, Runnable inStatement) {
        for (int started = 0; started < count; started += atATime) {
            List<Thread> threads = startVirtual(Math.min(atATime, count - started), inStatement);
            if (threads.isEmpty()) {
                return 0;
            }
            threads.forEach(Station::await);
        }
        return count;
    }

    private static List<Thread> startVirtual(int count, Runnable inStatement) {
        List<Thread> threads = new ArrayList<>();
        for (int i = 0; i < count; i++) {
            Thread thread = startVirtual(() -> request(inStatement));
            if (thread == null) {
                return List.of();
            }
            threads.add(thread);
        }
        return threads;
    }

    private static int waiting(int count) {
        CountDownLatch arrived = new CountDownLatch(count);
        waiting = startVirtual(count, () -> {
            arrived.countDown();
            unlessInterrupted(released::await);
        });
        if (!waiting.isEmpty()) {
            unlessInterrupted(arrived::await);
        }
        return waiting.size();
    }

    private static int release() {
        released.countDown();
        waiting.forEach(Station::await);
        return waiting.size();
    }

    /** Null where the JVM has no virtual threads. */
    static Thread startVirtual(Runnable work) {
        try {
            return (Thread) Thread.class.getMethod("startVirtualThread", Runnable.class).invoke(null, work);
        } catch (ReflectiveOperationException notInThisJvm) {
            return null;
        }
    }

    private interface Wait {
        void toTheEnd() throws InterruptedException;
    }

    private static boolean unlessInterrupted(Wait wait) {
        try {
            wait.toTheEnd();
            return true;
        } catch (InterruptedException e) {
            Thread.currentThread().interrupt();
            return false;
        }
    }

    private static void await(Thread thread) {
        unlessInterrupted(thread::join);
    }

    static boolean pause(long millis) {
        return unlessInterrupted(() -> Thread.sleep(millis));
    }

    private static int load(int threads, long waitMillis) {
        for (int i = 0; i < threads; i++) {
            daemon(() -> {
                while (pause(2)) {
                    request(waitMillis);
                }
            }).start();
        }
        return threads;
    }

    private static int priorities() {
        return priorities("am-event-agent-") + 100 * priorities("am-network-agent-");
    }

    private static int during(int wanted) {
        for (int look = 0; priorities() != wanted && look < 4000; look++) {
            pause(5);
        }
        long before = requests.sum();
        pause(100);
        return priorities() == wanted ? (int) (requests.sum() - before) : -1;
    }

    private static int priorities(String pool) {
        return Thread.getAllStackTraces().keySet().stream().filter(thread -> thread.getName().startsWith(pool))
                .mapToInt(Thread::getPriority).sum();
    }

    private static String state() {
        return "requests " + requests + " failures " + failures + " longest " + longestMicros.get() / 1000 + " ms";
    }

    private static int cycle() {
        ProbeService.stop();
        return ProbeService.start() ? 1 : 0;
    }

    private static int interrupted(int virtual) {
        AtomicInteger result = new AtomicInteger();
        Runnable stop = () -> {
            Thread.currentThread().interrupt();
            long from = System.nanoTime();
            ProbeService.stop();
            result.set(Thread.interrupted() ? (int) ((System.nanoTime() - from) / 1000000) : -1);
        };
        Thread thread = virtual == 1 ? startVirtual(stop) : null;
        if (thread == null) {
            thread = daemon(stop);
            thread.start();
        }
        await(thread);
        return result.get();
    }

    private static int log(int level) {
        ProbeLogger.setNativeProbeLoggingLevel(level);
        return level;
    }

    static void request(long waitMillis) {
        request(() -> pause(waitMillis));
    }

    private static void request(Runnable inStatement) {
        long from = System.nanoTime();
        report(() -> NativeEventAgentImpl.startHttpRequestNative(0, "/work", "station", "/station/work", "nobody"));
        for (int i = 0; i < 2; i++) {
            report(() -> NativeEventAgentImpl.beginSQLRequestNative("SELECT * FROM track", "station"));
            inStatement.run();
            report(() -> NativeEventAgentImpl.endSQLRequestNative("SELECT * FROM track", "station"));
        }
        report(() -> NativeEventAgentImpl.finishHttpRequestNative("/work"));
        requests.increment();
        longestMicros.accumulate((System.nanoTime() - from) / 1000);
    }

    private static void report(Runnable call) {
        try {
            call.run();
            begun.increment();
        } catch (LinkageError noCollector) {
            // An instrumented server without the agent: nothing to report to.
        } catch (Throwable harm) {
            failures.increment();
        }
    }
}
