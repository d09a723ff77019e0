package demo.load;

import java.net.URI;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * What the load driver is told. At least one of requests and seconds is bounded; the first limit reached ends the
 * run.
 *
 * @param url      address of the shop, without a path
 * @param threads  requests under way at a time, 1 to 256
 * @param requests most requests to send
 * @param seconds  longest time to begin requests
 * @param calls    the mix: request number i is entry i modulo size
 * @param report   file for the result, null for none
 * @param watchPid process whose memory is sampled, 0 for none
 */
record Options(URI url, int threads, long requests, long seconds, List<Call> calls, Path report, long watchPid) {
    static final String USAGE = "usage: --url URL (--requests N | --seconds S) [--threads N] [--mix fixed|fast]"
            + " [--report FILE] [--watch-pid PID]";

    private static final long UNLIMITED = Long.MAX_VALUE / 2_000_000_000L;

    /** @throws IllegalArgumentException with a text for the user, when an option is unknown, missing or wrong */
    static Options parse(String... args) {
        Map<String, String> given = new HashMap<>();
        for (int i = 0; i < args.length; i += 2) {
            if (i + 1 == args.length || !USAGE.contains(args[i] + " ") || !args[i].startsWith("--")) {
                throw new IllegalArgumentException("wrong option or no value: " + args[i]);
            }
            given.put(args[i], args[i + 1]);
        }
        if (!given.containsKey("--url") || !given.containsKey("--requests") && !given.containsKey("--seconds")) {
            throw new IllegalArgumentException("--url and one of --requests and --seconds are needed");
        }
        List<Call> calls = Call.MIXES.get(given.getOrDefault("--mix", "fixed"));
        if (calls == null) {
            throw new IllegalArgumentException("unknown mix: " + given.get("--mix"));
        }
        String report = given.get("--report");
        return new Options(URI.create(given.get("--url")), (int) number(given, "--threads", 8, 256),
                number(given, "--requests", UNLIMITED, UNLIMITED), number(given, "--seconds", UNLIMITED, UNLIMITED),
                calls, report == null ? null : Path.of(report), number(given, "--watch-pid", 0, UNLIMITED));
    }

    private static long number(Map<String, String> given, String name, long otherwise, long most) {
        if (!given.containsKey(name)) {
            return otherwise;
        }
        long value = Long.parseLong(given.get(name));
        if (value < 1 || value > most) {
            throw new IllegalArgumentException(name + " must be 1 to " + most);
        }
        return value;
    }
}
