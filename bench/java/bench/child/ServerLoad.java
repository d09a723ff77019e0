package bench.child;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import java.util.ArrayList;
import java.util.List;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.locks.LockSupport;

/**
 * Application threads in a closed loop of nested requests: a page, in it a component, in that a name lookup
 * and three statements, each of which waits for its database. Runs also without the agent, for comparison.
 */
public final class ServerLoad {
    private static final int STATEMENTS = 3;
    private static final int EVENTS_PER_REQUEST = 2 * (STATEMENTS + 3);
    private static final long PATIENCE_MILLIS = 10_000;

    private final boolean monitored;
    private final long waitNanos;
    private final long end;
    private final AtomicLong requests = new AtomicLong();
    private final AtomicLong failed = new AtomicLong();
    private final AtomicLong longest = new AtomicLong();

    private ServerLoad(boolean monitored, long waitMicros, int seconds) {
        this.monitored = monitored;
        waitNanos = waitMicros * 1000;
        end = System.nanoTime() + seconds * 1_000_000_000L;
    }

    /** Arguments: threads, seconds, microseconds a statement takes, monitored or plain. */
    public static void main(String[] args) throws Exception {
        boolean monitored = args[3].equals("monitored");
        if (monitored) {
            Lines.awaitProbe();
        }
        Lines.stage("ready");
        ServerLoad load = new ServerLoad(monitored, Long.parseLong(args[2]), Integer.parseInt(args[1]));
        load.run(Integer.parseInt(args[0]));
        Lines.stage("done");
    }

    private void run(int threads) throws InterruptedException {
        List<Thread> running = new ArrayList<>();
        for (int i = 0; i < threads; i++) {
            Thread thread = new Thread(this::serve, "worker-" + i);
            thread.setDaemon(true);
            thread.start();
            running.add(thread);
        }
        Thread.sleep(Math.max(0, (end - System.nanoTime()) / 1_000_000));
        Lines.tell("stuck", countStuck(running));
        Lines.tell("requests", requests.get());
        Lines.tell("failed", failed.get());
        Lines.tell("events", requests.get() * EVENTS_PER_REQUEST);
        Lines.tell("longestMillis", longest.get() / 1_000_000);
    }

    /** Threads that have not ended long after their last request should have. */
    private static int countStuck(List<Thread> threads) throws InterruptedException {
        long limit = System.nanoTime() + PATIENCE_MILLIS * 1_000_000;
        int stuck = 0;
        for (Thread thread : threads) {
            thread.join(Math.max(1, (limit - System.nanoTime()) / 1_000_000));
            stuck += thread.isAlive() ? 1 : 0;
        }
        return stuck;
    }

    private void serve() {
        while (System.nanoTime() < end) {
            long from = System.nanoTime();
            try {
                page();
                requests.incrementAndGet();
            } catch (Throwable failure) {
                failed.incrementAndGet();
            }
            longest.accumulateAndGet(System.nanoTime() - from, Math::max);
        }
    }

    private void page() {
        if (!monitored) {
            for (int i = 0; i < STATEMENTS; i++) {
                database();
            }
            return;
        }
        NativeEventAgentImpl.startHttpRequestNative(0, "/shop/cart", "shop", "http://shop.local/cart", "user7");
        NativeEventAgentImpl.beginEJBRequestNative(Families.BEAN, Families.BEAN.length);
        NativeEventAgentImpl.beginJNDIRequestNative("jdbc/shop", "iiop://names.local");
        NativeEventAgentImpl.endJNDIRequestNative("jdbc/shop", "iiop://names.local");
        for (int i = 0; i < STATEMENTS; i++) {
            NativeEventAgentImpl.beginSQLRequestNative(Families.SQL, Families.SOURCE);
            database();
            NativeEventAgentImpl.endSQLRequestNative(Families.SQL, Families.SOURCE);
        }
        NativeEventAgentImpl.endEJBRequestNative();
        NativeEventAgentImpl.finishHttpRequestNative("/shop/cart");
    }

    private void database() {
        if (waitNanos > 0) {
            LockSupport.parkNanos(waitNanos);
        }
    }
}
