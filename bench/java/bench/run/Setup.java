package bench.run;

import java.util.List;
import java.util.Map;

/**
 * How a JVM is started.
 *
 * @param collector how much of the collector it carries
 * @param port of the Publish Server on this machine
 * @param settings lines of the collector's properties
 * @param jvmOptions further options of the JVM
 */
record Setup(Collector collector, int port, Map<String, String> settings, List<String> jvmOptions) {
    enum Collector { NONE, JAVA_HALF_ONLY, WHOLE }

    /** The heap is in memory from the start, so that only native memory moves the process's size. */
    private static final List<String> STEADY_HEAP = List.of("-Xms256m", "-Xmx256m", "-XX:+AlwaysPreTouch",
            "-XX:+UseSerialGC");

    static Setup steady(int port, Map<String, String> settings) {
        return new Setup(Collector.WHOLE, port, settings, STEADY_HEAP);
    }

    static Setup steadyPlain() {
        return new Setup(Collector.NONE, 0, Map.of(), STEADY_HEAP);
    }
}
