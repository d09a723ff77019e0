package bench.run;

import java.io.IOException;
import java.util.List;
import java.util.Map;

/**
 * Whether the collector keeps up by itself: threads that each make events at a steady rate, at the settings that are
 * shipped, before a healthy Publish Server. Before that the process is idle, and its agents' wake-ups are counted.
 */
final class KeepUp {
    private static final Map<String, Integer> DEFAULTS = Map.of("seconds", 60, "threads", 8, "rate", 20_000, "idle", 20);

    private KeepUp() {
    }

    /** False if an event was lost, or the rate was not reached. */
    static boolean run(Install install, List<String> arguments) throws IOException, InterruptedException {
        Options options = new Options(DEFAULTS, arguments);
        try (Receiver receiver = new Receiver(install);
                MonitoredJvm jvm = new MonitoredJvm(install, Setup.steady(receiver.port(), Map.of()), "PacedLoad",
                        options.get("threads"), options.get("seconds"), options.get("rate"))) {
            jvm.awaitStage("connected");
            System.out.printf("the first request left its queue %.1f s after the start of the JVM%n",
                    (System.nanoTime() - jvm.startedNanos) / 1e9);
            countIdle(jvm, options.get("idle"));
            Map<String, Double> before = Pump.processorSeconds(jvm, receiver);
            double idleBefore = ProcFigures.idleSeconds();
            jvm.goOn();
            jvm.awaitStage("made");
            double idle = ProcFigures.idleSeconds() - idleBefore;
            Map<String, Double> spent = Pump.processorSeconds(jvm, receiver);
            before.forEach((side, seconds) -> spent.merge(side, -seconds, Double::sum));
            jvm.goOn();
            jvm.awaitStage("done");
            jvm.goOn();
            jvm.awaitEnd();
            System.out.printf("processors idle: %.0f%%%n", 100 * idle / jvm.number("seconds"));
            return report(jvm, spent, receiver.finish(), options.get("threads") * options.get("rate"));
        }
    }

    private static void countIdle(MonitoredJvm jvm, int seconds) throws IOException, InterruptedException {
        if (seconds == 0) {
            return;
        }
        Map<String, Double> before = ProcFigures.threadSleeps(jvm.pid());
        Thread.sleep(seconds * 1000L);
        Map<String, Double> after = ProcFigures.threadSleeps(jvm.pid());
        for (String name : List.of("am-event-agent-", "am-network-agen")) {
            System.out.printf("idle: %s wakes %.2f times a second%n", name,
                    (after.getOrDefault(name, 0.0) - before.getOrDefault(name, 0.0)) / seconds);
        }
    }

    private static boolean report(MonitoredJvm jvm, Map<String, Double> processor, Statistics received, int wanted)
            throws IOException {
        double seconds = jvm.number("seconds");
        long made = (long) jvm.number("events");
        long lines = jvm.logLines().stream().filter(line -> line.contains("Events dropped")
                || line.contains("Queue is full")).count();
        System.out.printf("%d events in %.1f s: %.0f a second of %d wanted%n", made, seconds, made / seconds, wanted);
        System.out.printf("decoded %d, counted as dropped %d, gaps marked %d, lines about losses %d, broken streams %d%n",
                received.events(), received.dropped(), received.markers(), lines, received.number("errors"));
        Pump.printSides(processor, seconds, made);
        return received.events() == made + (long) jvm.number("before") && received.dropped() + received.markers() == 0
                && made / seconds > 0.97 * wanted;
    }
}
