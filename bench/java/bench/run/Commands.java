package bench.run;

import java.io.IOException;
import java.util.List;

/** Short commands. */
final class Commands {
    private Commands() {
    }

    /** The lines that a command prints; what it says on standard error is passed on. */
    static List<String> output(String... command) throws IOException {
        Process process = new ProcessBuilder(command).redirectError(ProcessBuilder.Redirect.INHERIT).start();
        List<String> lines = process.inputReader().lines().toList();
        try {
            if (process.waitFor() != 0) {
                throw new IOException(command[0] + " failed");
            }
        } catch (InterruptedException stopped) {
            Thread.currentThread().interrupt();
        }
        return lines;
    }
}
