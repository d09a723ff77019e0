package amtest;

import com.zykora.command.CommandAgent;
import com.zykora.probe.ProbeController;
import com.zykora.probe.ProbeUtils;
import java.nio.ByteBuffer;
import java.util.List;
import java.util.stream.Stream;

/** Prints tokens of correlation: amtest.Tokens REGION THREADS TOKENS_EACH. The first one stands on the first line. */
public final class Tokens {
    private Tokens() {
    }

    public static void main(String[] args) throws InterruptedException {
        ProbeController.setupGps(args[0]);
        ProbeController.setupGps("1111");
        show(ProbeUtils.getNativeGpsToken());
        List<Thread> threads = Stream.generate(() -> new Thread(() -> {
            for (int i = 0; i < Integer.parseInt(args[2]); i++) {
                show(i % 2 == 0 ? ProbeUtils.getNativeGpsToken() : CommandAgent.getNativeGpsToken());
            }
        })).limit(Integer.parseInt(args[1])).toList();
        threads.forEach(Thread::start);
        for (Thread thread : threads) {
            thread.join();
        }
    }

    private static void show(byte[] token) {
        System.out.println(String.format("%08x", ByteBuffer.wrap(token).getInt()));
    }
}
