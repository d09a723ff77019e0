package demo.load;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.Collections;
import java.util.List;
import java.util.Locale;

/**
 * Samples the resident memory of a process, in kB (1024 bytes), as Linux tells it. Silent when there is nothing to
 * watch or the process has gone. Used by one thread.
 */
final class MemoryWatch {
    private final Path status;
    private final List<Long> samples = new ArrayList<>();

    /** @param pid 0 to watch nothing */
    MemoryWatch(long pid) {
        status = pid == 0 ? null : Path.of("/proc", Long.toString(pid), "status");
    }

    void sample() {
        if (status == null) {
            return;
        }
        try {
            for (String line : Files.readAllLines(status)) {
                if (line.startsWith("VmRSS:")) {
                    samples.add(Long.parseLong(line.replaceAll("\\D", "")));
                }
            }
        } catch (IOException e) {
            return; // the process has ended; what was sampled stands
        }
    }

    /** The last sample, 0 without one. */
    long last() {
        return samples.isEmpty() ? 0 : samples.get(samples.size() - 1);
    }

    /** A JVM grows while it warms up: between the half and the end only a leak makes it grow. Null without samples. */
    String json() {
        return samples.isEmpty() ? "null" : String.format(Locale.ROOT,
                "{\"first\":%d,\"half\":%d,\"last\":%d,\"max\":%d}",
                samples.get(0), samples.get(samples.size() / 2), last(), Collections.max(samples));
    }
}
