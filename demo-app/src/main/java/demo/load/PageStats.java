package demo.load;

import java.util.Locale;
import java.util.concurrent.atomic.AtomicLongArray;
import java.util.concurrent.atomic.LongAdder;

/**
 * Counts and latencies of one page, in constant memory however many requests there are. Thread safe. Latencies are
 * kept in buckets of microseconds, eight to each power of two: a percentile is at most an eighth too high.
 */
final class PageStats {
    private static final int BUCKETS = 320;

    private final LongAdder requests = new LongAdder();
    private final LongAdder statements = new LongAdder();
    private final LongAdder errors = new LongAdder();
    private final LongAdder unexpected = new LongAdder();
    private final LongAdder micros = new LongAdder();
    private final AtomicLongArray buckets = new AtomicLongArray(BUCKETS);

    void add(Answer answer, boolean expected, long tookMicros) {
        requests.increment();
        statements.add(answer.statements());
        errors.add(answer.status() >= 400 ? 1 : 0);
        unexpected.add(expected ? 0 : 1);
        micros.add(tookMicros);
        buckets.incrementAndGet(bucket(tookMicros));
    }

    long requests() {
        return requests.sum();
    }

    /** As the answers told it; an answer that does not tell counts as 0. */
    long statements() {
        return statements.sum();
    }

    /** Answers with status 400 or more, wanted or not. */
    long errors() {
        return errors.sum();
    }

    /** Answers that are not what the page must give. */
    long unexpected() {
        return unexpected.sum();
    }

    double meanMillis() {
        return requests() == 0 ? 0 : micros.sum() / 1000.0 / requests();
    }

    /** Milliseconds that the given share (0 to 1) of the requests did not exceed; 0 without requests. */
    double percentileMillis(double share) {
        long wanted = (long) Math.ceil(share * requests());
        long seen = 0;
        for (int i = 0; i < BUCKETS && wanted > 0; i++) {
            seen += buckets.get(i);
            if (seen >= wanted) {
                return upperMicros(i) / 1000.0;
            }
        }
        return 0;
    }

    String json(String path) {
        return String.format(Locale.ROOT, "{\"path\":\"%s\",\"requests\":%d,\"statements\":%d,\"errors\":%d,"
                + "\"unexpected\":%d,\"meanMs\":%.3f,\"p95Ms\":%.3f}", path, requests(), statements(), errors(),
                unexpected(), meanMillis(), percentileMillis(0.95));
    }

    private static int bucket(long value) {
        int shift = Math.max(0, 60 - Long.numberOfLeadingZeros(value));
        return Math.min(BUCKETS - 1, shift * 8 + (int) (value >>> shift));
    }

    private static long upperMicros(int bucket) {
        int shift = Math.max(0, bucket / 8 - 1);
        return ((bucket - shift * 8L + 1) << shift) - 1;
    }
}
