package bench.run;

import java.util.Timer;
import java.util.TimerTask;

/** Watches the resident memory of a process. */
final class PeakMemory implements AutoCloseable {
    private static final int PERIOD_MILLIS = 100;

    private final Timer timer = new Timer(true);
    private volatile long peak;

    PeakMemory(long pid) {
        timer.scheduleAtFixedRate(new TimerTask() {
            @Override
            public void run() {
                peak = Math.max(peak, ProcFigures.residentBytes(pid));
            }
        }, 0, PERIOD_MILLIS);
    }

    long peakBytes() {
        return peak;
    }

    @Override
    public void close() {
        timer.cancel();
    }
}
