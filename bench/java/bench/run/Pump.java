package bench.run;

import java.io.IOException;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;

/** Events a second from four producers through the pump to a Publish Server that decodes them. */
final class Pump {
    private static final Map<String, Integer> DEFAULTS = Map.of("seconds", 10, "producers", 4);

    private Pump() {
    }

    /** False if events were lost. */
    static boolean run(Install install, List<String> arguments) throws IOException, InterruptedException {
        Options options = new Options(DEFAULTS, arguments);
        try (Receiver receiver = new Receiver(install);
                MonitoredJvm jvm = new MonitoredJvm(install, Setup.steady(receiver.port(), Settings.PUMP), "PumpLoad",
                        options.get("producers"), options.get("seconds"))) {
            jvm.awaitStage("ready");
            Map<String, Double> before = processorSeconds(jvm, receiver);
            jvm.goOn();
            jvm.awaitStage("done");
            Map<String, Double> spent = processorSeconds(jvm, receiver);
            before.forEach((side, seconds) -> spent.merge(side, -seconds, Double::sum));
            jvm.goOn();
            jvm.awaitEnd();
            return report(jvm, spent, receiver.finish());
        }
    }

    /** The producers have ended by the time of the second look: they are what the agent's threads leave over. */
    static Map<String, Double> processorSeconds(MonitoredJvm jvm, Receiver receiver) throws IOException {
        Map<String, Double> threads = ProcFigures.threadSeconds(jvm.pid());
        double pump = threads.getOrDefault("am-event-agent-", 0.0);
        double network = threads.getOrDefault("am-network-agen", 0.0);
        Map<String, Double> sides = new LinkedHashMap<>();
        sides.put("producers and JVM", ProcFigures.seconds(jvm.pid()) - pump - network);
        sides.put("event agent", pump);
        sides.put("network agent", network);
        sides.put("Publish Server", ProcFigures.seconds(receiver.pid()));
        return sides;
    }

    private static boolean report(MonitoredJvm jvm, Map<String, Double> processor, Statistics received) {
        double seconds = jvm.number("seconds");
        long made = (long) jvm.number("events");
        System.out.printf("%d events in %.1f s: %.0f a second, %.1f MB/s%n", made, seconds, made / seconds,
                received.number("bytes") / seconds / 1e6);
        System.out.printf("decoded %d, counted as dropped %d, gaps marked %d, broken streams %d%n", received.events(),
                received.dropped(), received.markers(), received.number("errors"));
        printSides(processor, seconds, made);
        return received.events() + received.dropped() == made;
    }

    static void printSides(Map<String, Double> processor, double seconds, long events) {
        System.out.printf("%-18s %10s %14s%n", "side", "processor", "ns an event");
        processor.forEach((side, spent) -> System.out.printf("%-18s %9.1f%% %14.0f%n", side, 100 * spent / seconds,
                spent * 1e9 / events));
    }
}
