package demo.shop;

import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.time.Duration;

/**
 * Waits for a collector that comes up beside the shop. Events before that moment are not recorded, so a run whose
 * requests are to be compared with the records must not start earlier. Reached by reflection: the shop runs the
 * same without a collector in its JVM.
 */
final class ProbeGate {
    private static final long POLL_MS = 50;

    private ProbeGate() {
    }

    /** True as soon as events are recorded; false at once without a collector, or after {@code limit}. */
    static boolean await(Duration limit) throws InterruptedException {
        long deadline = System.nanoTime() + limit.toNanos();
        try {
            Method enabled = Class.forName("com.zykora.probe.ProbeController").getMethod("isNativeProbeEnabled");
            while (!(Boolean) enabled.invoke(null)) {
                if (System.nanoTime() > deadline) {
                    return false;
                }
                Thread.sleep(POLL_MS);
            }
            return true;
        } catch (ClassNotFoundException | NoSuchMethodException | IllegalAccessException e) {
            return false;
        } catch (InvocationTargetException e) {
            return false; // the Java half is here, the native library is not
        }
    }
}
