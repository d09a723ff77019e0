package bench.child;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.atomic.AtomicLong;

/**
 * Producers that make events as fast as the pump can take them: each pauses while too much waits, so that the
 * pump always has work and nothing has to be dropped.
 */
public final class PumpLoad {
    private static final int STATEMENTS = 50;
    private static final int EVENTS_PER_REQUEST = 2 * STATEMENTS + 2;
    private static final int MOST_EVENTS = 40_000;
    private static final int MOST_BYTES = 40_000_000;
    private static final AtomicLong EVENTS = new AtomicLong();

    private PumpLoad() {
    }

    /** Arguments: producers, seconds. */
    public static void main(String[] args) throws Exception {
        int producers = Integer.parseInt(args[0]);
        Lines.awaitProbe();
        Lines.stage("ready");
        long from = System.nanoTime();
        long end = from + Integer.parseInt(args[1]) * 1_000_000_000L;
        List<Thread> running = new ArrayList<>();
        for (int i = 0; i < producers; i++) {
            Thread thread = new Thread(() -> produce(end), "bench-" + i);
            thread.start();
            running.add(thread);
        }
        for (Thread thread : running) {
            thread.join();
        }
        Rounds.drain();
        Lines.tell("seconds", (System.nanoTime() - from) / 1e9);
        Lines.tell("events", EVENTS.get());
        Lines.stage("done");
    }

    private static void produce(long end) {
        long requests = 0;
        while (System.nanoTime() < end) {
            if (NativeEventAgentImpl.getNumberOfEventsNative() > MOST_EVENTS
                    || NativeEventAgentImpl.getTotalBytesConsumedNative() > MOST_BYTES) {
                pause();
                continue;
            }
            Families.openRequest();
            Families.SQL_PAIR.loop().accept(STATEMENTS);
            Families.closeRequest();
            requests++;
        }
        EVENTS.addAndGet(requests * EVENTS_PER_REQUEST);
    }

    private static void pause() {
        try {
            Thread.sleep(1);
        } catch (InterruptedException stopped) {
            Thread.currentThread().interrupt();
        }
    }
}
