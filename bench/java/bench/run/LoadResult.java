package bench.run;

import java.io.IOException;
import java.util.ArrayList;
import java.util.List;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** What came of one run under load, and whether it is good. */
final class LoadResult {
    /** What the collector may take beside its limit: its code, stacks of its threads, slack of the allocator. */
    private static final int CONSTANT_MEGABYTES = 40;

    private static final Pattern OVER_QUEUE_LIMIT = Pattern.compile("Events dropped (\\d+) for thread");
    private static final String ROW = "%-13s %9s %6s %5s %7s %6s %9s %9s %8s %9s %9s %6s %5s %5s %5s  %s%n";

    private final long requests;
    private final long failed;
    private final long stuck;
    private final long longestMillis;
    private final long calls;
    private final int status;
    private final long peakBytes;
    private final long droppedByLog;
    private final long stoppedAccepting;
    private final long acceptedAgain;
    private final long turbo;

    /** Of a process that has ended. */
    LoadResult(MonitoredJvm jvm, int status, long peakBytes) throws IOException {
        this.status = status;
        this.peakBytes = peakBytes;
        requests = (long) jvm.number("requests");
        failed = (long) jvm.number("failed");
        stuck = (long) jvm.number("stuck");
        longestMillis = (long) jvm.number("longestMillis");
        calls = (long) jvm.number("events");
        List<String> log = jvm.logLines();
        droppedByLog = log.stream().map(OVER_QUEUE_LIMIT::matcher).filter(Matcher::find)
                .mapToLong(line -> Long.parseLong(line.group(1))).sum();
        stoppedAccepting = count(log, "datacollector stopped accepting data");
        acceptedAgain = count(log, "datacollector is accepting data");
        turbo = count(log, "Switching to Turbo Mode");
    }

    private static long count(List<String> log, String text) {
        return log.stream().filter(line -> line.contains(text)).count();
    }

    static void printHeading() {
        System.out.printf(ROW, "", "", "", "", "longest", "memory", "", "", "drop", "over queue", "", "gap", "", "", "",
                "");
        System.out.printf(ROW, "Publish Server", "requests", "failed", "stuck", "ms", "+MB", "calls", "decoded",
                "records", "limit", "refused", "marks", "1054", "1055", "turbo", "");
    }

    /**
     * Prints the row of this run.
     *
     * @param received what a healthy Publish Server has counted, else null
     * @return whether all conditions hold
     */
    boolean judge(Load.Scenario scenario, Statistics received, LoadResult plain) {
        long megabytesMore = (peakBytes - plain.peakBytes) / 1_000_000;
        List<String> faults = new ArrayList<>();
        require(faults, status == 0, "exit status " + status);
        require(faults, requests > 0 && failed == 0, "requests failed");
        require(faults, stuck == 0, "threads stayed blocked");
        require(faults, megabytesMore < scenario.limitMegabytes() + CONSTANT_MEGABYTES, "too much memory");
        require(faults, !scenario.crossesLimits() || stoppedAccepting * acceptedAgain * turbo > 0, "no limit acted");
        if (received != null) {
            require(faults, received.number("errors") == 0, "broken stream");
            require(faults, isAccountedFor(refused(received)), "events unaccounted for");
        }
        System.out.printf(ROW, scenario.name(), requests, failed, stuck, longestMillis, megabytesMore, calls,
                figure(received, Statistics::events), figure(received, Statistics::dropped), droppedByLog,
                figure(received, this::refused), figure(received, Statistics::markers), stoppedAccepting,
                acceptedAgain, turbo, faults.isEmpty() ? "ok" : "FAULT: " + String.join(", ", faults));
        return faults.isEmpty();
    }

    private static void require(List<String> faults, boolean condition, String fault) {
        if (!condition) {
            faults.add(fault);
        }
    }

    /** The log tells of all that went over a queue's limit, drop records only of what had been queued before. */
    private long refused(Statistics received) {
        return calls - received.events() - Math.max(received.dropped(), droppedByLog);
    }

    /** What became no event was refused at the gate, which must have been closed then. */
    private boolean isAccountedFor(long refused) {
        return refused == 0 || refused > 0 && stoppedAccepting + turbo > 0;
    }

    private static Object figure(Statistics received, ToFigure which) {
        return received == null ? "" : which.of(received);
    }

    private interface ToFigure {
        long of(Statistics received);
    }
}
