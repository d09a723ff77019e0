package bench.run;

import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.stream.Stream;

/** Where things lie: the installed tree under test, the benchmark's own files, and a directory to work in. */
record Install(Path home, Path benchmarks, Path work) {
    static Install locate() throws IOException {
        Path work = Files.createTempDirectory("am-bench");
        Runtime.getRuntime().addShutdownHook(new Thread(() -> delete(work)));
        return new Install(Path.of(System.getProperty("bench.home")), Path.of(System.getProperty("bench.files")), work);
    }

    Path program(String name) {
        return home.resolve("bin").resolve(name);
    }

    String java() {
        return Path.of(System.getProperty("java.home"), "bin", "java").toString();
    }

    private static void delete(Path directory) {
        try (Stream<Path> files = Files.walk(directory)) {
            files.sorted((one, other) -> other.compareTo(one)).forEach(file -> file.toFile().delete());
        } catch (IOException gone) {
            // Nothing left to remove.
        }
    }
}
