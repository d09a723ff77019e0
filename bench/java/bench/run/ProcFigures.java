package bench.run;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.Map;
import java.util.stream.Stream;

/** What the system knows of a process. */
final class ProcFigures {
    /** Of the kernel's clock that counts processor time. */
    private static final double TICKS_PER_SECOND = 100;

    private ProcFigures() {
    }

    /** Processor seconds of a process by the names of its threads, as far as the kernel keeps them (15 letters). */
    static Map<String, Double> threadSeconds(long pid) throws IOException {
        Map<String, Double> seconds = new HashMap<>();
        try (Stream<Path> tasks = Files.list(Path.of("/proc", String.valueOf(pid), "task"))) {
            tasks.forEach(task -> addTask(task, seconds));
        }
        return seconds;
    }

    static double seconds(long pid) throws IOException {
        return cpuSeconds(Files.readString(Path.of("/proc", String.valueOf(pid), "stat")));
    }

    /** Resident memory in bytes; 0 of a process that is gone. */
    static long residentBytes(long pid) {
        try (Stream<String> lines = Files.lines(Path.of("/proc", String.valueOf(pid), "status"))) {
            return lines.filter(line -> line.startsWith("VmRSS:"))
                    .mapToLong(line -> Long.parseLong(line.replaceAll("\\D+", "")) * 1024).findFirst().orElse(0);
        } catch (IOException gone) {
            return 0;
        }
    }

    private static void addTask(Path task, Map<String, Double> seconds) {
        try {
            String name = Files.readString(task.resolve("comm")).trim();
            seconds.merge(name, cpuSeconds(Files.readString(task.resolve("stat"))), Double::sum);
        } catch (IOException ended) {
            // A thread that ended meanwhile.
        }
    }

    /** User and system time; the name before them may hold blanks. */
    private static double cpuSeconds(String stat) {
        String[] fields = stat.substring(stat.lastIndexOf(')') + 2).split(" ");
        return (Long.parseLong(fields[11]) + Long.parseLong(fields[12])) / TICKS_PER_SECOND;
    }
}
