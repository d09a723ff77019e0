package bench.run;

import java.io.BufferedReader;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** A real Publish Server that decodes and counts and prints nothing. */
final class Receiver implements Peer {
    private static final Pattern ADDRESS = Pattern.compile("listening on .*:(\\d+)");

    private final int port;
    private final Process process;
    private final Path statistics;

    Receiver(Install install) throws IOException {
        statistics = Files.createTempFile(install.work(), "received", ".json");
        process = new ProcessBuilder(install.program("publish-server").toString(), "--listen", "127.0.0.1:0",
                "--stats-file", statistics.toString()).redirectErrorStream(true).start();
        port = readPort(process.inputReader());
    }

    private int readPort(BufferedReader output) throws IOException {
        for (String line = output.readLine(); line != null; line = output.readLine()) {
            Matcher address = ADDRESS.matcher(line);
            if (address.find()) {
                Thread reader = new Thread(() -> output.lines().forEach(ignored -> { }));
                reader.setDaemon(true);
                reader.start();
                return Integer.parseInt(address.group(1));
            }
        }
        throw new IOException("the Publish Server did not start");
    }

    @Override
    public int port() {
        return port;
    }

    long pid() {
        return process.pid();
    }

    @Override
    public Statistics finish() throws IOException, InterruptedException {
        process.destroy();
        process.waitFor();
        return new Statistics(Files.readString(statistics));
    }

    @Override
    public void close() {
        process.destroyForcibly();
    }
}
