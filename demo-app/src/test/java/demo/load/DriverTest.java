package demo.load;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.sun.net.httpserver.HttpServer;
import java.io.ByteArrayOutputStream;
import java.io.IOException;
import java.io.PrintStream;
import java.net.InetAddress;
import java.net.InetSocketAddress;
import java.net.ServerSocket;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.function.Supplier;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;
import org.junit.jupiter.params.provider.ValueSource;

@Timeout(30)
class DriverTest {
    @TempDir
    private Path directory;

    /** The mix opens with the catalogue, so one request sees only that page. */
    @ParameterizedTest
    @CsvSource({
        "200, 2, catalogue of tea, 0",
        "500, 2, catalogue of tea, 1",
        "200, 3, catalogue of tea, 1",
        "200, many, catalogue of tea, 1",
        "200, 2, something else, 1",
    })
    void noticesAWrongAnswer(int status, String statements, String body, int exit) throws Exception {
        assertEquals(exit, runAgainst(status, statements, () -> body, "--requests", "1"));
    }

    @Test
    void noticesAnAnswerThatChanges() throws Exception {
        AtomicInteger count = new AtomicInteger();
        Options options = Options.parse("--url", "http://127.0.0.1", "--requests", "1");
        assertEquals(options.calls().get(0).target(0), options.calls().get(16).target(16));
        runAgainst(200, "2", () -> "catalogue " + count.incrementAndGet(), "--requests", "17", "--threads", "1");
        assertTrue(written().contains("{\"path\":\"/catalogue\",\"requests\":4,\"statements\":8,\"errors\":0,"
                + "\"unexpected\":1,"), written());
    }

    @Test
    void endsWhenNobodyAnswers() throws Exception {
        ServerSocket closed = new ServerSocket(0, 0, InetAddress.getLoopbackAddress());
        int port = closed.getLocalPort();
        closed.close();
        assertEquals(1, run(port, "--seconds", "1000", "--threads", "2"));
        assertTrue(written().contains("\"requests\":0,"), written());
    }

    @ParameterizedTest
    @ValueSource(strings = {"", "--requests 5", "--url http://h", "--url http://h --requests", "--url http://h --req 5",
        "--url http://h --requests five", "--url http://h --requests 0", "--url http://h --seconds 5 --threads 257",
        "--url http://h --seconds 5 --mix other", "--url :: --seconds 5"})
    void refusesWrongOptions(String line) throws Exception {
        ByteArrayOutputStream told = new ByteArrayOutputStream();
        String[] args = line.isEmpty() ? new String[0] : line.split(" ");
        assertEquals(2, Main.run(System.out, new PrintStream(told), args));
        assertTrue(told.toString().contains("usage: --url"), told::toString);
    }

    private int runAgainst(int status, String statements, Supplier<String> body, String... limits) throws Exception {
        HttpServer server = server();
        server.createContext("/", exchange -> {
            byte[] bytes = body.get().getBytes(StandardCharsets.UTF_8);
            exchange.getResponseHeaders().set("X-Statements", statements);
            exchange.sendResponseHeaders(status, bytes.length);
            exchange.getResponseBody().write(bytes);
            exchange.close();
        });
        server.start();
        try {
            return run(server.getAddress().getPort(), limits);
        } finally {
            server.stop(0);
        }
    }

    private int run(int port, String... limits) throws IOException, InterruptedException {
        String[] args = new String[limits.length + 4];
        System.arraycopy(new String[] {"--url", "http://127.0.0.1:" + port, "--report", report().toString()}, 0,
                args, 0, 4);
        System.arraycopy(limits, 0, args, 4, limits.length);
        PrintStream nowhere = new PrintStream(PrintStream.nullOutputStream());
        return Main.run(nowhere, nowhere, args);
    }

    private Path report() {
        return directory.resolve("report.json");
    }

    private String written() throws IOException {
        return Files.readString(report());
    }

    private static HttpServer server() throws IOException {
        return HttpServer.create(new InetSocketAddress(InetAddress.getLoopbackAddress(), 0), 0);
    }
}
