package com.zykora.probe.servlet;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.net.URI;
import java.net.http.HttpClient;
import java.net.http.HttpRequest;
import java.net.http.HttpResponse.BodyHandlers;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.concurrent.CompletableFuture;
import java.util.concurrent.LinkedBlockingQueue;
import java.util.concurrent.TimeUnit;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

/** What the filter reports and leaves alone, in a real server of either servlet API. */
abstract class RequestFilterCases {
    private static final HttpClient CLIENT = HttpClient.newHttpClient();
    private final RecordingSink sink = new RecordingSink();

    /**
     * Starts a server with one application at "/shop" whose servlet answers by path, the filter before it.
     *
     * @param dispatches also map the filter to inner dispatches
     * @return the port
     */
    abstract int startServer(RequestRecorder recorder, boolean dispatches) throws Exception;

    @AfterEach
    abstract void stopServer() throws Exception;

    @ParameterizedTest
    @CsvSource(delimiter = '|', value = {
        "/ok?card=4711 | false | 200 ok     | start /ok, finish /ok",
        "/             | false | 200 ok     | start /, finish /",
        "/error        | false | 404        | start /error, error /error 404 Not Found",
        "/status       | false | 418 teapot | start /status, error /status 418",
        "/unchecked    | false | 500        | start /unchecked, error /unchecked java.lang.IllegalStateException",
        "/checked      | false | 500        | start /checked, error /checked java.io.IOException",
        "/fatal        | false | 500        | start /fatal, error /fatal java.lang.StackOverflowError",
        "/async        | false | 200 later  | start /async, finish /async",
        "/forward      | false | 200 ok     | start /forward, finish /forward",
        "/forward      | true  | 200 ok     | start /forward, start /ok, finish /ok, finish /forward",
        "/include      | true  | 200 [ok]   | start /include, start /ok, finish /ok, finish /include",
    })
    void reportsOneEndForEachBegin(String path, boolean dispatches, String response, String reports)
            throws Exception {
        int port = startServer(new RequestRecorder(sink), dispatches);
        assertEquals(response, get(port, path));
        assertEquals(Arrays.asList(reports.split(", ")), sink.awaitBalance());
    }

    @Test
    void describesTheRequest() throws Exception {
        int port = startServer(new RequestRecorder(sink), false);
        get(port, "/ok/info?secret=1");
        sink.awaitBalance();
        HttpCall call = sink.lastCall;
        assertEquals("/ok/info shop http://localhost:" + port + "/shop/ok/info null",
                call.name + " " + call.application + " " + call.url + " " + call.user);
    }

    @Test
    void theApplicationIsUntouchedWithoutAgentOrByAFailingOne() throws Exception {
        int port = startServer(new RequestRecorder(null), false);
        assertEquals("200 ok", get(port, "/ok"));
        assertEquals("404", get(port, "/error"));
        stopServer();

        port = startServer(RequestRecorder.ofAgent(), false);
        assertEquals("200 ok", get(port, "/ok"));
        stopServer();

        sink.failing = true;
        port = startServer(new RequestRecorder(sink), false);
        assertEquals("200 ok", get(port, "/ok"));
        assertEquals("500", get(port, "/unchecked"));
    }

    @Test
    void manyThreadsKeepTheirPairsApart() throws Exception {
        int port = startServer(new RequestRecorder(sink), false);
        List<CompletableFuture<?>> running = new ArrayList<>();
        for (int i = 0; i < 200; i++) {
            running.add(CLIENT.sendAsync(request(port, i % 3 == 0 ? "/error" : "/ok"), BodyHandlers.ofString()));
        }
        CompletableFuture.allOf(running.toArray(new CompletableFuture<?>[0])).get(30, TimeUnit.SECONDS);
        List<String> reports = sink.awaitBalance();
        assertEquals(400, reports.size());
        assertEquals(67, reports.stream().filter(report -> report.startsWith("error")).count());
    }

    /** The status, and the body of an answer that the servlet itself wrote. */
    private static String get(int port, String path) throws IOException, InterruptedException {
        var response = CLIENT.send(request(port, path), BodyHandlers.ofString());
        boolean own = response.statusCode() < 400 || response.statusCode() == 418;
        return response.statusCode() + (own ? " " + response.body() : "");
    }

    private static HttpRequest request(int port, String path) {
        return HttpRequest.newBuilder(URI.create("http://localhost:" + port + "/shop" + path)).build();
    }

    /** Notes the reports and checks that an end comes on the thread of its begin. */
    private static final class RecordingSink implements RequestSink {
        volatile HttpCall lastCall;
        volatile boolean failing;
        private final LinkedBlockingQueue<String> reports = new LinkedBlockingQueue<>();
        private final ThreadLocal<Integer> depth = ThreadLocal.withInitial(() -> 0);

        @Override
        public void start(HttpCall call) {
            lastCall = call;
            note("start " + call.name, 1);
        }

        @Override
        public void finish(HttpCall call) {
            note("finish " + call.name, -1);
        }

        @Override
        public void error(HttpCall call, String text) {
            note("error " + call.name + " " + text, -1);
        }

        private void note(String report, int step) {
            if (failing) {
                throw new UnsatisfiedLinkError("gone");
            }
            depth.set(depth.get() + step);
            reports.add(depth.get() < 0 ? report + " on a foreign thread" : report);
        }

        /** All reports, once there are as many ends as begins: the last end may follow the response. */
        List<String> awaitBalance() throws InterruptedException {
            List<String> all = new ArrayList<>();
            int open = 0;
            do {
                String report = reports.poll(10, TimeUnit.SECONDS);
                assertTrue(report != null, "an end is missing after " + all);
                all.add(report);
                open += report.startsWith("start") ? 1 : -1;
            } while (open > 0 || !reports.isEmpty());
            return all;
        }
    }
}
