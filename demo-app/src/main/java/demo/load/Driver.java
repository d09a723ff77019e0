package demo.load;

import java.io.IOException;
import java.io.PrintStream;
import java.net.http.HttpClient;
import java.net.http.HttpRequest;
import java.net.http.HttpRequest.BodyPublishers;
import java.net.http.HttpResponse.BodyHandlers;
import java.time.Duration;
import java.util.ArrayList;
import java.util.List;
import java.util.Map;
import java.util.TreeMap;
import java.util.concurrent.ConcurrentHashMap;
import java.util.concurrent.TimeUnit;
import java.util.concurrent.atomic.AtomicLong;
import java.util.concurrent.atomic.LongAdder;

/**
 * Sends requests in a closed loop: each thread sends the next one when its last is answered, so the server never
 * holds more than {@code threads}. Every answer is checked against its {@link Call}, and against the first answer
 * to the same request. For one run; memory does not grow with the number of requests.
 */
final class Driver {
    private static final Duration PATIENCE = Duration.ofSeconds(30);
    private static final long PROGRESS_MS = 2000;
    /** A server that does not answer at all ends the run. */
    private static final long MOST_LOST = 100;

    private final Options options;
    private final PrintStream progress;
    private final HttpClient client =
            HttpClient.newBuilder().version(HttpClient.Version.HTTP_1_1).connectTimeout(PATIENCE).build();
    private final Map<String, PageStats> pages = new TreeMap<>();
    private final Map<String, Long> firstAnswers = new ConcurrentHashMap<>();
    private final AtomicLong next = new AtomicLong();
    private final LongAdder checksum = new LongAdder();
    private final LongAdder lost = new LongAdder();
    private final MemoryWatch memory;
    private long deadline;

    Driver(Options options, PrintStream progress) {
        this.options = options;
        this.progress = progress;
        memory = new MemoryWatch(options.watchPid());
        Call.paths(options.calls()).forEach(path -> pages.put(path, new PageStats()));
    }

    Report run() throws InterruptedException {
        long start = System.nanoTime();
        deadline = start + TimeUnit.SECONDS.toNanos(options.seconds());
        List<Thread> workers = new ArrayList<>();
        for (int i = 0; i < options.threads(); i++) {
            Thread worker = new Thread(this::work, "load-" + i);
            worker.start();
            workers.add(worker);
        }
        memory.sample();
        for (Thread worker : workers) {
            while (!join(worker)) {
                memory.sample();
                report(start).printProgress(progress);
            }
        }
        memory.sample();
        return report(start);
    }

    private static boolean join(Thread worker) throws InterruptedException {
        worker.join(PROGRESS_MS);
        return !worker.isAlive();
    }

    private Report report(long start) {
        double seconds = (System.nanoTime() - start) / 1e9;
        return new Report(pages, seconds, lost.sum(), checksum.sum(), memory);
    }

    private void work() {
        while (System.nanoTime() - deadline < 0 && lost.sum() < MOST_LOST) {
            long number = next.getAndIncrement();
            if (number >= options.requests()) {
                return;
            }
            try {
                send(options.calls().get((int) (number % options.calls().size())), number);
            } catch (IOException e) {
                lost.increment();
                progress.println("lost request " + number + ": " + e);
            } catch (InterruptedException e) {
                return;
            }
        }
    }

    private void send(Call call, long number) throws IOException, InterruptedException {
        HttpRequest request = HttpRequest.newBuilder(call.uri(options.url(), number))
                .method(call.method(), BodyPublishers.noBody()).timeout(PATIENCE).build();
        long before = System.nanoTime();
        Answer answer = Answer.of(client.send(request, BodyHandlers.ofByteArray()));
        long tookMicros = TimeUnit.NANOSECONDS.toMicros(System.nanoTime() - before);
        String target = call.target(number);
        long sum = answer.checksum(target);
        checksum.add(sum);
        Long first = firstAnswers.putIfAbsent(target, sum);
        boolean expected = answer.fits(call) && (first == null || first == sum);
        pages.get(call.path()).add(answer, expected, tookMicros);
    }
}
