package bench.run;

import java.io.IOException;
import java.util.List;
import java.util.Map;

/**
 * A server under load before Publish Servers of all sorts: no request may fail, no thread may stay blocked, the
 * memory must stay within what the collector was given, and a healthy Publish Server must learn of every event.
 */
final class Load {
    private static final Map<String, Integer> DEFAULTS = Map.of("seconds", 60, "threads", 64, "micros", 6000,
            "only", 0);

    /**
     * Small enough that a flood drives the collector over each of its limits again and again. It looks at them once
     * in each round of its pump; between two rounds only the queues' own limit holds.
     */
    private static final Map<String, String> SMALL_LIMITS = Settings.with(Settings.QUICK_CONNECT, Map.of(
            "internal.memory.limit", "16",
            "internal.probe.event.packet.size", "500",
            "internal.probe.event.queue.size.limit", "2000",
            "internal.probe.publishing.frequency", "200"));

    /**
     * One run.
     *
     * @param limitMegabytes the collector's memory limit
     * @param flood whether the application works without a pause, which no collector can follow
     * @param crossesLimits whether both of the collector's limits must be seen to act
     */
    record Scenario(String name, Peer.Kind peer, Map<String, String> settings, int limitMegabytes, boolean flood,
            boolean crossesLimits) {
        private static Scenario usual(String name, Peer.Kind peer) {
            return new Scenario(name, peer, Settings.QUICK_CONNECT, 60, false, false);
        }
    }

    private static final List<Scenario> SCENARIOS = List.of(
            Scenario.usual("healthy", Peer.Kind.HEALTHY),
            Scenario.usual("never reads", Peer.Kind.NEVER_READS),
            Scenario.usual("resets", Peer.Kind.RESETS),
            Scenario.usual("none", Peer.Kind.NONE),
            new Scenario("flood", Peer.Kind.HEALTHY, Settings.QUICK_CONNECT, 60, true, false),
            new Scenario("small limits", Peer.Kind.HEALTHY, SMALL_LIMITS, 16, true, true));

    private final Install install;
    private final Options options;

    private Load(Install install, Options options) {
        this.install = install;
        this.options = options;
    }

    /** False if a condition did not hold in one of the runs. */
    static boolean run(Install install, List<String> arguments) throws IOException, InterruptedException {
        Load load = new Load(install, new Options(DEFAULTS, arguments));
        LoadResult.printHeading();
        LoadResult plain = load.once("plain", Setup.steadyPlain(), false);
        boolean holds = true;
        int only = load.options.get("only");
        for (Scenario scenario : only == 0 ? SCENARIOS : List.of(SCENARIOS.get(only - 1))) {
            holds &= load.holds(scenario, plain);
        }
        return holds;
    }

    private boolean holds(Scenario scenario, LoadResult plain) throws IOException, InterruptedException {
        try (Peer peer = Peer.of(scenario.peer(), install)) {
            LoadResult result = once("monitored", Setup.steady(peer.port(), scenario.settings()), scenario.flood());
            return result.judge(scenario, peer.finish(), plain);
        }
    }

    private LoadResult once(String mode, Setup setup, boolean flood) throws IOException, InterruptedException {
        try (MonitoredJvm jvm = new MonitoredJvm(install, setup, "ServerLoad", options.get("threads"),
                options.get("seconds"), flood ? 0 : options.get("micros"), mode)) {
            jvm.awaitStage("ready");
            jvm.goOn();
            try (PeakMemory memory = new PeakMemory(jvm.pid())) {
                jvm.awaitStage("done");
                jvm.goOn();
                int status = jvm.awaitEnd();
                return new LoadResult(jvm, status, memory.peakBytes());
            }
        }
    }
}
