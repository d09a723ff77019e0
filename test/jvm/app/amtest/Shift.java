package amtest;

import java.nio.ByteOrder;
import java.nio.MappedByteBuffer;
import java.nio.channels.FileChannel;
import java.nio.file.Path;
import java.nio.file.StandardOpenOption;

/**
 * A server with a known amount of work and a known end: 3 threads do the station's requests, exit status 7. It tells its
 * phase in the first word of a mapped file, and waits for a byte on standard input before it works and before it ends.
 *
 * <pre>
 *   amtest.Shift FILE REQUESTS_PER_THREAD
 *   ready
 *   worked REQUESTS begun EVENTS enabled BEFORE AFTER thrown FAILURES
 * </pre>
 */
public final class Shift {
    private static final int START = 1;
    private static final int WORK = 2;
    private static final int STOP = 3;
    private static final int CALM = 4;
    private static final long START_LIMIT_MILLIS = 6000;

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
        System.out.println("ready");
        System.in.read();
        phase.putLong(0, WORK);
        Thread[] threads = new Thread[3];
        for (int i = 0; i < threads.length; i++) {
            threads[i] = new Thread(() -> work(each), "shift-" + i);
            threads[i].start();
        }
        for (Thread thread : threads) {
            thread.join();
        }
        boolean after = Station.enabled() == 1;
        phase.putLong(0, CALM);
        System.out.println("worked " + Station.requests + " begun " + Station.begun + " enabled " + before + " " + after
                + " thrown " + Station.failures);
        System.in.read();
        phase.putLong(0, STOP);
        System.exit(7);
    }

    private static boolean awaitCollector() {
        long until = System.nanoTime() + START_LIMIT_MILLIS * 1_000_000;
        while (Station.enabled() == 0 && System.nanoTime() < until && Station.pause(10)) {
            // it starts on a thread of its own
        }
        return Station.enabled() == 1;
    }

    private static void work(int count) {
        for (int i = 0; i < count && Station.pause(2); i++) {
            Station.request(0);
        }
    }
}
