package bench.run;

import java.util.HashMap;
import java.util.Map;

/** Settings of the collector for the benchmarks. */
final class Settings {
    /** The first connection is made after one such pause. */
    static final Map<String, String> QUICK_CONNECT = Map.of("networkagent.ps.reconnect.frequency", "1000");

    /** Long bursts without a limit, drained soon. */
    static final Map<String, String> BURSTS = with(QUICK_CONNECT, Map.of(
            "internal.probe.event.queue.size.limit", "1000000",
            "internal.memory.limit", "1900",
            "dc.turbomode.enabled", "false",
            "internal.probe.publishing.frequency", "50",
            "networkagent.publish.frequency", "10",
            "networkagent.buffer.limit", "200"));

    /** The shortest pauses. */
    static final Map<String, String> PUMP = with(BURSTS, Map.of(
            "networkagent.no.sleep", "true",
            "internal.probe.publishing.frequency", "1"));

    /** Queues that fill and are not cut within the first 30 seconds. */
    static final Map<String, String> NO_DRAIN = with(BURSTS, Map.of("internal.probe.publishing.frequency", "2000"));

    private Settings() {
    }

    static Map<String, String> with(Map<String, String> base, Map<String, String> more) {
        Map<String, String> all = new HashMap<>(base);
        all.putAll(more);
        return all;
    }
}
