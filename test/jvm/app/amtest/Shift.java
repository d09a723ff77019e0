package amtest;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.zykora.probe.ProbeController;
import java.nio.ByteOrder;
import java.nio.MappedByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;
import java.util.concurrent.CountDownLatch;
import java.util.concurrent.atomic.AtomicLong;

/**
 * A server with a known amount of work and a known end: 3 threads do requests with two statements each, every answer
 * is checked, exit status 7. It tells its phase in the first word of a mapped file, and waits for a byte on standard
 * input before it works and before it ends.
 *
 * <pre>
 *   amtest.Shift FILE REQUESTS_PER_THREAD
 *   ready
 *   worked REQUESTS begun EVENTS enabled BEFORE AFTER wrong ANSWERS thrown FAILURES
 * </pre>
 */
public final class Shift {
    private static final int START = 1;
    private static final int WORK = 2;
    private static final int STOP = 3;
    private static final int CALM = 4;
    private static final int THREADS = 3;
    private static final long START_LIMIT_MILLIS = 6000;

    private static final AtomicLong requests = new AtomicLong();
    private static final AtomicLong begun = new AtomicLong();
    private static final AtomicLong wrong = new AtomicLong();
    private static final AtomicLong thrown = new AtomicLong();

    private Shift() {
    }

    public static void main(String[] args) throws Exception {
        MappedByteBuffer phase;
        try (FileChannel file = FileChannel.open(Path.of(args[0]), StandardOpenOption.READ, StandardOpenOption.WRITE)) {
            phase = file.map(FileChannel.MapMode.READ_WRITE, 0, Long.BYTES);
        }
        phase.order(ByteOrder.nativeOrder());
        int each = Integer.parseInt(args[1]);
        phase.putLong(0, START);
        boolean before = awaitCollector();
        Thread[] threads = new Thread[THREADS];
        CountDownLatch bell = new CountDownLatch(1);
        for (int i = 0; i < THREADS; i++) {
            threads[i] = new Thread(() -> work(bell, each), "shift-" + i);
            threads[i].start();
        }
        System.out.println("ready");
        System.in.read();
        phase.putLong(0, WORK);
        bell.countDown();
        for (Thread thread : threads) {
            thread.join();
        }
        boolean after = enabled();
        phase.putLong(0, CALM);
        System.out.println("worked " + requests + " begun " + begun + " enabled " + before + " " + after + " wrong "
                + wrong + " thrown " + thrown);
        System.in.read();
        phase.putLong(0, STOP);
        System.exit(7);
    }

    private static boolean enabled() {
        try {
            return ProbeController.isNativeProbeEnabled();
        } catch (LinkageError absent) {
            return false;
        }
    }

    private static boolean awaitCollector() throws InterruptedException {
        long until = System.nanoTime() + START_LIMIT_MILLIS * 1_000_000;
        while (!enabled() && System.nanoTime() < until) {
            Thread.sleep(10);
        }
        return enabled();
    }

    private static void work(CountDownLatch bell, int count) {
        try {
            bell.await();
            for (int i = 0; i < count; i++) {
                if (request(i) != expected(i)) {
                    wrong.incrementAndGet();
                }
                requests.incrementAndGet();
                Thread.sleep(2);
            }
        } catch (InterruptedException nobodyInterruptsIt) {
            wrong.incrementAndGet();
        }
    }

    private static long expected(int order) {
        return 2L * order * 31 + 1;
    }

    private static long request(int order) {
        report(() -> NativeEventAgentImpl.startHttpRequestNative(0, "/work", "shift", "/shift/work", "nobody"));
        long sum = statement(order) + statement(order) + 1;
        report(() -> NativeEventAgentImpl.finishHttpRequestNative("/work"));
        return sum;
    }

    private static long statement(int order) {
        String text = "SELECT * FROM shift WHERE id = " + order;
        report(() -> NativeEventAgentImpl.beginSQLRequestNative(text, "shift"));
        long row = order * 31L;
        report(() -> NativeEventAgentImpl.endSQLRequestNative(text, "shift"));
        return row;
    }

    private static void report(Runnable call) {
        try {
            call.run();
            begun.incrementAndGet();
        } catch (LinkageError noCollector) {
            // The agent did not start: nothing to report to.
        } catch (Throwable harm) {
            thrown.incrementAndGet();
        }
    }
}
