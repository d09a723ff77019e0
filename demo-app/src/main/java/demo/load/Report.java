package demo.load;

import java.io.PrintStream;
import java.util.Locale;
import java.util.Map;
import java.util.function.ToLongFunction;
import java.util.stream.Collectors;

/**
 * What a run has shown so far; a view on live counters until the run has ended.
 *
 * @param pages    counters by path
 * @param seconds  length of the run
 * @param lost     requests that got no answer; whether the server began them is unknown
 * @param checksum sum over all answers; equal for two runs of the same requests that were answered alike
 * @param memory   samples of the watched process
 */
record Report(Map<String, PageStats> pages, double seconds, long lost, long checksum, MemoryWatch memory) {
    long sum(ToLongFunction<PageStats> counter) {
        return pages.values().stream().mapToLong(counter).sum();
    }

    boolean asExpected() {
        return lost == 0 && sum(PageStats::unexpected) == 0 && sum(PageStats::requests) > 0;
    }

    String json() {
        String perPage = pages.entrySet().stream().map(page -> page.getValue().json(page.getKey()))
                .collect(Collectors.joining(","));
        return String.format(Locale.ROOT, "{\"requests\":%d,\"statements\":%d,\"errors\":%d,\"unexpected\":%d,"
                + "\"lost\":%d,\"seconds\":%.3f,\"checksum\":\"%016x\",\"rssKb\":%s,\"pages\":[%s]}",
                sum(PageStats::requests), sum(PageStats::statements), sum(PageStats::errors),
                sum(PageStats::unexpected), lost, seconds, checksum, memory.json(), perPage);
    }

    void printProgress(PrintStream out) {
        long requests = sum(PageStats::requests);
        out.printf(Locale.ROOT, "%6.1f s %9d requests %7.0f/s %d unexpected %d lost%s%n", seconds, requests,
                requests / seconds, sum(PageStats::unexpected), lost,
                memory.last() == 0 ? "" : " " + memory.last() / 1024 + " MiB resident");
    }
}
