package bench.run;

import java.io.IOException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Collections;
import java.util.EnumMap;
import java.util.List;
import java.util.Map;
import java.util.stream.DoubleStream;

/** Milliseconds that the collector adds to a program that prints one line, run in turn with it and without. */
final class Startup {
    private static final Map<String, Integer> DEFAULTS = Map.of("rounds", 21, "whole", 3);

    /** Milliseconds by round; the end only of the first rounds. */
    private final Map<Setup.Collector, double[]> toLine = new EnumMap<>(Setup.Collector.class);
    private final Map<Setup.Collector, double[]> toEnd = new EnumMap<>(Setup.Collector.class);

    private Startup(int rounds, int whole) {
        for (Setup.Collector collector : Setup.Collector.values()) {
            toLine.put(collector, new double[rounds]);
            toEnd.put(collector, new double[whole]);
        }
    }

    static void run(Install install, List<String> arguments) throws IOException, InterruptedException {
        Options options = new Options(DEFAULTS, arguments);
        int whole = Math.max(1, Math.min(options.get("whole"), options.get("rounds")));
        Startup startup = new Startup(options.get("rounds"), whole);
        try (Receiver receiver = new Receiver(install)) {
            List<Setup.Collector> order = new ArrayList<>(List.of(Setup.Collector.values()));
            for (int round = 0; round < options.get("rounds"); round++) {
                for (Setup.Collector collector : order) {
                    startup.time(install, collector, receiver.port(), round);
                }
                Collections.reverse(order);
            }
        }
        startup.report();
    }

    /** Runs that are not timed to their end are ended by force. */
    private void time(Install install, Setup.Collector collector, int port, int round)
            throws IOException, InterruptedException {
        Setup setup = new Setup(collector, port, Settings.QUICK_CONNECT, List.of());
        try (MonitoredJvm jvm = new MonitoredJvm(install, setup, "Hello")) {
            jvm.awaitLine();
            toLine.get(collector)[round] = millisSince(jvm.startedNanos);
            if (round < toEnd.get(collector).length) {
                jvm.awaitEnd();
                toEnd.get(collector)[round] = millisSince(jvm.startedNanos);
            }
        }
    }

    private static double millisSince(long nanos) {
        return (System.nanoTime() - nanos) / 1e6;
    }

    private void report() {
        double[] plain = toLine.get(Setup.Collector.NONE);
        row("to the line, plain", plain);
        row("added by the jar on the boot path", added(toLine.get(Setup.Collector.JAVA_HALF_ONLY), plain));
        row("added by agent and Java half", added(toLine.get(Setup.Collector.WHOLE), plain));
        row("to the end, plain", toEnd.get(Setup.Collector.NONE));
        row("to the end, with the collector", toEnd.get(Setup.Collector.WHOLE));
        System.out.println("the end with the collector includes the fixed 10000 ms in which requests in flight end");
    }

    private static double[] added(double[] with, double[] without) {
        double[] differences = new double[with.length];
        Arrays.setAll(differences, i -> with[i] - without[i]);
        return differences;
    }

    private static void row(String name, double[] millis) {
        double[] sorted = DoubleStream.of(millis).sorted().toArray();
        System.out.printf("%-36s %8.0f ms  (%.0f to %.0f, %d runs)%n", name, sorted[sorted.length / 2], sorted[0],
                sorted[sorted.length - 1], sorted.length);
    }
}
