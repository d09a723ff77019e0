package bench.run;

import java.io.BufferedReader;
import java.io.IOException;
import java.io.OutputStream;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayList;
import java.util.LinkedHashMap;
import java.util.List;
import java.util.Map;
import java.util.concurrent.TimeUnit;
import java.util.stream.Stream;

/** A JVM, with the collector or without, that runs one of the programs of {@code bench.child}. */
final class MonitoredJvm implements AutoCloseable {
    /** What the process has told so far, by key. */
    final Map<String, String> told = new LinkedHashMap<>();
    /** When the process was started, by {@link System#nanoTime}. */
    final long startedNanos;

    private final Path directory;
    private final Process process;
    private final BufferedReader lines;

    MonitoredJvm(Install install, Setup setup, String program, Object... arguments) throws IOException {
        directory = Files.createTempDirectory(install.work(), "jvm");
        List<String> command = new ArrayList<>(List.of(install.java()));
        command.addAll(collectorOptions(install, setup));
        command.addAll(setup.jvmOptions());
        command.addAll(List.of("-Dbench.library=" + install.benchmarks().resolve("libam_bench.so"), "-cp",
                install.benchmarks().resolve("am-bench.jar").toString(), "bench.child." + program));
        Stream.of(arguments).map(String::valueOf).forEach(command::add);
        ProcessBuilder builder = new ProcessBuilder(command).redirectError(directory.resolve("err").toFile());
        startedNanos = System.nanoTime();
        process = builder.start();
        lines = process.inputReader();
    }

    private List<String> collectorOptions(Install install, Setup setup) throws IOException {
        if (setup.collector() == Setup.Collector.NONE) {
            return List.of();
        }
        List<String> all = Commands.output(install.program("am-options").toString(), "bench", "--data",
                directory.toString(), "--publish-server", "127.0.0.1:" + setup.port());
        if (setup.collector() == Setup.Collector.JAVA_HALF_ONLY) {
            return all.stream().filter(option -> option.startsWith("-Xbootclasspath")).toList();
        }
        writeSettings(install, all, setup.settings());
        return all;
    }

    /** A runtime directory that is not there yet would get the samples alone. */
    private static void writeSettings(Install install, List<String> options, Map<String, String> settings)
            throws IOException {
        String agent = options.stream().filter(option -> option.startsWith("-agentpath:")).findFirst().orElseThrow();
        Path runtime = Path.of(agent.substring(agent.indexOf('=') + 1));
        Files.createDirectories(runtime);
        for (String name : List.of("datacollector.properties", "dc.env.properties", "zyk-lgkit.properties")) {
            Files.copy(install.home().resolve("etc").resolve(name), runtime.resolve(name));
        }
        Files.write(runtime.resolve("datacollector_bench.properties"),
                settings.entrySet().stream().map(one -> one.getKey() + "=" + one.getValue()).toList());
    }

    long pid() {
        return process.pid();
    }

    /** Reads what the process tells until it has reached a stage. */
    void awaitStage(String name) throws IOException {
        for (String line = awaitLine(); !line.equals("stage " + name); line = awaitLine()) {
            int equals = line.indexOf('=');
            if (equals > 0) {
                told.put(line.substring(0, equals), line.substring(equals + 1));
            }
        }
    }

    String awaitLine() throws IOException {
        String line = lines.readLine();
        if (line == null) {
            throw new IOException("the process ended early: " + Files.readString(directory.resolve("err")));
        }
        return line;
    }

    void goOn() throws IOException {
        OutputStream in = process.getOutputStream();
        in.write('\n');
        in.flush();
    }

    /** The exit status, -1 if the process does not end. What is queued has been sent by then. */
    int awaitEnd() throws InterruptedException {
        return process.waitFor(2, TimeUnit.MINUTES) ? process.exitValue() : -1;
    }

    double number(String key) {
        return Double.parseDouble(told.get(key));
    }

    /** Lines of the collector's message and trace logs; complete once the process has ended. */
    List<String> logLines() throws IOException {
        try (Stream<Path> files = Files.walk(directory)) {
            return files.filter(file -> file.getFileName().toString().matches("dc-(msg|trace).*"))
                    .flatMap(MonitoredJvm::linesOf).toList();
        }
    }

    private static Stream<String> linesOf(Path file) {
        try {
            return Files.readAllLines(file).stream();
        } catch (IOException unreadable) {
            return Stream.empty();
        }
    }

    @Override
    public void close() {
        process.destroyForcibly();
    }
}
