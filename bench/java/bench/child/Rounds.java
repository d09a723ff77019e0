package bench.child;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import java.lang.management.ManagementFactory;
import java.lang.management.ThreadMXBean;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.CyclicBarrier;

/**
 * Times cases in bursts, interleaved round by round, so that whatever else the machine does falls on all of
 * them alike. What counts is the CPU time of the thread: on a busy machine the wall clock measures the
 * neighbours. Before each burst the queues are empty.
 */
final class Rounds {
    private static final int WARM_UP = 6;
    private static final ThreadMXBean CLOCK = ManagementFactory.getThreadMXBean();

    private final List<Case> cases;
    private final int rounds;
    private final int burst;
    private final CyclicBarrier start;
    private final CyclicBarrier end;
    /** Nanoseconds by thread, case and round. */
    private final double[][][] nanos;

    private Rounds(List<Case> cases, int threads, int rounds, int burst) {
        this.cases = cases;
        this.rounds = rounds;
        this.burst = burst;
        start = new CyclicBarrier(threads);
        end = new CyclicBarrier(threads, Rounds::drain);
        nanos = new double[threads][cases.size()][rounds];
    }

    /** Nanoseconds for one of each case: the median over the rounds, the mean of it over the threads. */
    static Map<String, Double> measure(List<Case> cases, int threads, int rounds, int burst)
            throws InterruptedException {
        Rounds all = new Rounds(cases, threads, rounds, burst);
        List<Thread> running = new ArrayList<>();
        for (int i = 0; i < threads; i++) {
            double[][] own = all.nanos[i];
            Thread thread = new Thread(() -> all.run(own), "bench-" + i);
            thread.start();
            running.add(thread);
        }
        for (Thread thread : running) {
            thread.join();
        }
        return all.result();
    }

    private void run(double[][] own) {
        try {
            for (int round = -WARM_UP; round < rounds; round++) {
                for (int i = 0; i < cases.size(); i++) {
                    double each = timed(cases.get(i));
                    if (round >= 0) {
                        own[i][round] = each;
                    }
                }
            }
        } catch (Exception broken) {
            throw new IllegalStateException(broken);
        }
    }

    private double timed(Case one) throws Exception {
        if (one.open()) {
            Families.openRequest();
        }
        start.await();
        long from = CLOCK.getCurrentThreadCpuTime();
        one.loop().accept(burst);
        long taken = CLOCK.getCurrentThreadCpuTime() - from;
        if (one.open()) {
            Families.closeRequest();
        }
        end.await();
        return (double) taken / burst;
    }

    /** Waits until the collector has sent everything; gives up after 10 seconds. */
    static void drain() {
        long limit = System.nanoTime() + 10_000_000_000L;
        while (NativeEventAgentImpl.getNumberOfEventsNative() > 0 && System.nanoTime() < limit) {
            try {
                Thread.sleep(2);
            } catch (InterruptedException stopped) {
                Thread.currentThread().interrupt();
                return;
            }
        }
    }

    private Map<String, Double> result() {
        Map<String, Double> medians = new LinkedHashMap<>();
        for (int i = 0; i < cases.size(); i++) {
            double sum = 0;
            for (double[][] own : nanos) {
                Arrays.sort(own[i]);
                sum += own[i][rounds / 2];
            }
            medians.put(cases.get(i).name(), sum / nanos.length);
        }
        return medians;
    }
}
