package bench.child;

import com.zykora.probe.ProbeController;
import java.io.IOException;
import java.util.Map;

/** How a monitored process talks to the benchmark that started it: lines out, one line in to let it go on. */
final class Lines {
    private Lines() {
    }

    static void tell(String key, Object value) {
        System.out.println(key + "=" + value);
    }

    static void tellAll(String prefix, Map<String, Double> figures) {
        figures.forEach((name, value) -> tell(prefix + name, value));
    }

    /** Says that a stage is over and waits for the benchmark's word. */
    static void stage(String name) throws IOException {
        System.out.println("stage " + name);
        while (System.in.read() > '\n') {
            // The rest of the line.
        }
    }

    /** Waits until events are taken. */
    static void awaitProbe() throws InterruptedException {
        while (!ProbeController.isNativeProbeEnabled()) {
            Thread.sleep(10);
        }
    }
}
