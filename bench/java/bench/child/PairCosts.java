package bench.child;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.zykora.probe.ProbeService;
import java.util.ArrayList;
import java.util.List;

/**
 * Times the parts of a pair of SQL events by leaving parts out: each case below runs one part more, or one
 * less, than another. Also times one pair of each family.
 */
public final class PairCosts {
    private PairCosts() {
    }

    /** Arguments: threads, rounds, bursts of how many, families or parts. */
    public static void main(String[] args) throws Exception {
        int threads = Integer.parseInt(args[0]);
        int rounds = Integer.parseInt(args[1]);
        int burst = Integer.parseInt(args[2]);
        boolean families = args[3].equals("families");
        Lines.awaitProbe();
        Lines.stage("ready");
        List<Case> cases = new ArrayList<>(List.of(cpuClocks(), wallClocks(), empty(), floor()));
        cases.addAll(families ? Families.all() : parts());
        Lines.tellAll("", Rounds.measure(cases, threads, rounds, burst));
        if (!families) {
            ProbeService.stop();
            Lines.tellAll("", Rounds.measure(List.of(refused()), threads, rounds, burst));
        }
        Lines.stage("done");
    }

    private static Case cpuClocks() {
        return new Case("cpu clocks", false, count -> Comparison.cpuClock(2 * count));
    }

    private static Case wallClocks() {
        return new Case("wall clocks", false, count -> Comparison.wallClock(2 * count));
    }

    private static Case empty() {
        return new Case("empty", false, Families.repeat(() -> {
            Comparison.nothing(Families.SQL, Families.SOURCE);
            Comparison.nothing(Families.SQL, Families.SOURCE);
        }));
    }

    private static Case floor() {
        return new Case("floor", false, Families.repeat(() -> {
            Comparison.clocks(Families.SQL, Families.SOURCE);
            Comparison.clocks(Families.SQL, Families.SOURCE);
        }));
    }

    private static List<Case> parts() {
        return List.of(Families.SQL_PAIR, withoutTexts(), withoutEvent(), eventOnly(), eventBehindClocks());
    }

    private static Case withoutTexts() {
        return new Case("without texts", true, Families.repeat(() -> {
            NativeEventAgentImpl.beginSQLRequestNative(null, null);
            NativeEventAgentImpl.endSQLRequestNative(null, null);
        }));
    }

    /** Ends outside a request: they pass the gate, find their thread, and stop there. */
    private static Case withoutEvent() {
        return new Case("without event", false, Families.repeat(() -> {
            NativeEventAgentImpl.endMailRequestNative(Families.SQL, Families.SOURCE);
            NativeEventAgentImpl.endMailRequestNative(Families.SQL, Families.SOURCE);
        }));
    }

    /** Events that carry neither clocks nor texts. */
    private static Case eventOnly() {
        return new Case("event only", true, Families.repeat(() -> {
            NativeEventAgentImpl.genericExceptionEventNative(7, 0, null);
            NativeEventAgentImpl.genericExceptionEventNative(7, 0, null);
        }));
    }

    /** The same events, each behind a call that reads the clocks, as those of a pair are within one call. */
    private static Case eventBehindClocks() {
        return new Case("event behind clocks", true, Families.repeat(() -> {
            Comparison.clocks(Families.SQL, Families.SOURCE);
            NativeEventAgentImpl.genericExceptionEventNative(7, 0, null);
            Comparison.clocks(Families.SQL, Families.SOURCE);
            NativeEventAgentImpl.genericExceptionEventNative(7, 0, null);
        }));
    }

    private static Case refused() {
        return new Case("refused", false, Families.SQL_PAIR.loop());
    }
}
