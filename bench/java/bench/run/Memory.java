package bench.run;

import java.io.IOException;
import java.util.List;
import java.util.Map;

/** The collector's estimate of queued events beside the memory that they really take. */
final class Memory {
    private static final Map<String, Integer> DEFAULTS = Map.of("events", 100_000);

    private Memory() {
    }

    static void run(Install install, List<String> arguments) throws IOException, InterruptedException {
        Options options = new Options(DEFAULTS, arguments);
        System.out.printf("%-12s %16s %16s %8s%n", "event", "estimated bytes", "malloc'ed bytes", "ratio");
        for (String kind : List.of("http begin", "http end", "sql begin", "sql end")) {
            try (MonitoredJvm jvm = new MonitoredJvm(install, Setup.steady(Peer.UNUSED_PORT, Settings.NO_DRAIN),
                    "QueueMemory", kind, options.get("events"))) {
                jvm.awaitStage("done");
                double estimated = jvm.number("estimated");
                double real = jvm.number("real");
                System.out.printf("%-12s %16.1f %16.1f %8.2f%n", kind, estimated, real, real / estimated);
            }
        }
    }
}
