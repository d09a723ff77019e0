package bench.child;

import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.locks.LockSupport;

/** Threads that each make events at a steady rate, a request with its statements at a time. */
public final class PacedLoad {
    private static final int STATEMENTS = 50;
    private static final int EVENTS_PER_REQUEST = 2 * STATEMENTS + 2;
    /** Requests that a thread may be behind and make up for: more at once would be another load. */
    private static final int MOST_BEHIND = 10;
    private static final AtomicLong EVENTS = new AtomicLong();

    private PacedLoad() {
    }

    /** Arguments: threads, seconds, events a second of each thread. */
    public static void main(String[] args) throws Exception {
        Lines.awaitProbe();
        request();
        Rounds.drain();
        Lines.tell("before", EVENTS_PER_REQUEST);
        Lines.stage("connected");
        long from = System.nanoTime();
        long end = from + Integer.parseInt(args[1]) * 1_000_000_000L;
        long pace = EVENTS_PER_REQUEST * 1_000_000_000L / Integer.parseInt(args[2]);
        List<Thread> running = new ArrayList<>();
        for (int i = 0; i < Integer.parseInt(args[0]); i++) {
            Thread thread = new Thread(() -> produce(end, pace), "bench-" + i);
            thread.start();
            running.add(thread);
        }
        for (Thread thread : running) {
            thread.join();
        }
        Lines.tell("seconds", (System.nanoTime() - from) / 1e9);
        Lines.tell("events", EVENTS.get());
        Lines.stage("made");
        Rounds.drain();
        Lines.stage("done");
    }

    private static void produce(long end, long pace) {
        long requests = 0;
        long due = System.nanoTime();
        for (long now = due; now < end; now = System.nanoTime()) {
            if (now < due) {
                LockSupport.parkNanos(due - now);
                continue;
            }
            request();
            requests++;
            due = Math.max(due + pace, now - MOST_BEHIND * pace);
        }
        EVENTS.addAndGet(requests * EVENTS_PER_REQUEST);
    }

    private static void request() {
        Families.openRequest();
        Families.SQL_PAIR.loop().accept(STATEMENTS);
        Families.closeRequest();
    }
}
