package bench.run;

import java.io.IOException;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** Nanoseconds of one begin and end: of SQL split into its parts, and of each family. */
final class Pairs {
    private static final Map<String, Integer> DEFAULTS = Map.of("rounds", 41, "burst", 4000);

    private Pairs() {
    }

    static void parts(Install install, List<String> arguments) throws IOException, InterruptedException {
        Options options = new Options(DEFAULTS, arguments);
        for (int threads : new int[] {1, 4}) {
            printParts(threads, measure(install, threads, options, "parts"));
        }
    }

    static void families(Install install, List<String> arguments) throws IOException, InterruptedException {
        Map<String, Double> nanos = measure(install, 1, new Options(DEFAULTS, arguments), "families");
        double clocks = nanos.remove("cpu clocks");
        nanos.remove("wall clocks");
        nanos.remove("empty");
        double floor = nanos.remove("floor");
        System.out.printf("%-14s %10s %16s %12s%n", "family", "ns a pair", "beyond 2 clocks", "beyond floor");
        nanos.forEach((name, pair) -> System.out.printf("%-14s %10.0f %16.0f %12.0f%n", name, pair, pair - clocks,
                pair - floor));
    }

    private static Map<String, Double> measure(Install install, int threads, Options options, String what)
            throws IOException, InterruptedException {
        try (Receiver receiver = new Receiver(install);
                MonitoredJvm jvm = new MonitoredJvm(install, Setup.steady(receiver.port(), Settings.BURSTS),
                        "PairCosts", threads, options.get("rounds"), options.get("burst"), what)) {
            jvm.awaitStage("ready");
            jvm.goOn();
            jvm.awaitStage("done");
            Map<String, Double> nanos = new LinkedHashMap<>();
            jvm.told.forEach((name, value) -> nanos.put(name, Double.valueOf(value)));
            return nanos;
        }
    }

    /** Every part is the difference of two measured cases. */
    private static void printParts(int threads, Map<String, Double> nanos) {
        double whole = nanos.get("sql");
        double jni = nanos.get("empty");
        double lookup = nanos.get("without event") - jni;
        double texts = whole - nanos.get("without texts");
        double cpu = nanos.get("cpu clocks");
        double wall = nanos.get("wall clocks");
        double event = nanos.get("event only") - nanos.get("without event");
        System.out.printf("%n%d thread%s%n%-48s %8s %7s%n", threads, threads == 1 ? "" : "s", "part", "ns", "share");
        Map<String, Double> rows = new LinkedHashMap<>();
        rows.put("JNI: two calls of an empty native", jni);
        rows.put("gate and lookup of the thread", lookup);
        rows.put("strings", texts);
        rows.put("clocks: thread CPU, twice", cpu);
        rows.put("clocks: wall, twice", wall);
        rows.put("events: made, queued, later destroyed", event);
        rows.put("what those events cost more behind a system call",
                nanos.get("event behind clocks") - nanos.get("floor") - nanos.get("event only"));
        double rest = whole - rows.values().stream().mapToDouble(Double::doubleValue).sum();
        rows.put("in none of these", rest);
        rows.put("the whole pair", whole);
        rows.put("the pair while the probe is stopped", nanos.get("refused"));
        rows.forEach((name, part) -> System.out.printf("%-48s %8.0f %6.1f%%%n", name, part, 100 * part / whole));
        System.out.printf("beyond its two thread-CPU clocks %.0f ns, beyond two calls that only read the clocks %.0f ns%n",
                whole - cpu, whole - nanos.get("floor"));
    }
}
