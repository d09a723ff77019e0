package bench.child;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.zykora.probe.ThreadManager;
import java.util.Map;

/** Fills a queue that nobody drains and holds the collector's estimate against what malloc has given out. */
public final class QueueMemory {
    private static final int WARM_UP = 1000;
    /** Longer than the pump needs to look at its queues again. */
    private static final long PUMP_ROUND_MILLIS = 5000;

    private static final Map<String, Runnable> KINDS = Map.of(
            "http begin", Families::openRequest,
            "http end", Families::closeRequest,
            "sql begin", () -> NativeEventAgentImpl.beginSQLRequestNative(Families.SQL, Families.SOURCE),
            "sql end", () -> NativeEventAgentImpl.endSQLRequestNative(Families.SQL, Families.SOURCE));

    private QueueMemory() {
    }

    /** Arguments: kind of event, how many. */
    public static void main(String[] args) throws Exception {
        Runnable event = KINDS.get(args[0]);
        int count = Integer.parseInt(args[1]);
        Lines.awaitProbe();
        measureTexts();
        Thread.sleep(PUMP_ROUND_MILLIS);
        long estimate = estimatedBytes();
        long allocated = Comparison.allocatedBytes();
        Families.repeat(event).accept(count);
        long real = Comparison.allocatedBytes() - allocated;
        Thread.sleep(PUMP_ROUND_MILLIS);
        Lines.tell("estimated", (double) (estimatedBytes() - estimate) / count);
        Lines.tell("real", (double) real / count);
        Lines.tell("queued", NativeEventAgentImpl.getNumberOfEventsNative());
        Lines.stage("done");
    }

    /** The collector weighs events by the mean length of the first texts that it sees. */
    private static void measureTexts() {
        for (int i = 0; i < WARM_UP; i++) {
            Families.openRequest();
            Families.SQL_PAIR.loop().accept(1);
            Families.closeRequest();
        }
    }

    private static long estimatedBytes() {
        return Long.parseLong(ThreadManager.getNativeProbeStatus().replaceAll("\\D+", ""));
    }
}
