package bench.run;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.HashMap;
import java.util.Map;
import java.util.function.ToDoubleFunction;
import java.util.stream.Stream;

/** What the system knows of a process. */
final class ProcFigures {
    /** Of the kernel's clock that counts processor time. */
    private static final double TICKS_PER_SECOND = 100;

    private ProcFigures() {
    }

    /** Processor seconds of a process by the names of its threads, as far as the kernel keeps them (15 letters). */
    static Map<String, Double> threadSeconds(long pid) throws IOException {
        return ofThreads(pid, "stat", ProcFigures::cpuSeconds);
    }

    /** How often the threads of a process have gone to sleep, by the same names. */
    static Map<String, Double> threadSleeps(long pid) throws IOException {
        return ofThreads(pid, "status", ProcFigures::sleeps);
    }

    private static Map<String, Double> ofThreads(long pid, String file, ToDoubleFunction<String> figure)
            throws IOException {
        Map<String, Double> sums = new HashMap<>();
        try (Stream<Path> tasks = Files.list(Path.of("/proc", String.valueOf(pid), "task"))) {
            tasks.forEach(task -> addTask(task, file, figure, sums));
        }
        return sums;
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

    /** Seconds that the machine's processors have had nothing to do, of all together. */
    static double idleSeconds() throws IOException {
        String[] fields = Files.readString(Path.of("/proc/stat")).split("\\s+", 6);
        return Long.parseLong(fields[4]) / TICKS_PER_SECOND;
    }

    private static void addTask(Path task, String file, ToDoubleFunction<String> figure, Map<String, Double> sums) {
        try {
            String name = Files.readString(task.resolve("comm")).trim();
            sums.merge(name, figure.applyAsDouble(Files.readString(task.resolve(file))), Double::sum);
        } catch (IOException ended) {
            // A thread that ended meanwhile.
        }
    }

    private static double sleeps(String status) {
        return status.lines().filter(line -> line.startsWith("voluntary_ctxt_switches:"))
                .mapToLong(line -> Long.parseLong(line.replaceAll("\\D+", ""))).sum();
    }

    /** User and system time; the name before them may hold blanks. */
    private static double cpuSeconds(String stat) {
        String[] fields = stat.substring(stat.lastIndexOf(')') + 2).split(" ");
        return (Long.parseLong(fields[11]) + Long.parseLong(fields[12])) / TICKS_PER_SECOND;
    }
}
