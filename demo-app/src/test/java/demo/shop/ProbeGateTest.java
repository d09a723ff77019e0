package demo.shop;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTimeoutPreemptively;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.zykora.probe.ProbeController;
import java.time.Duration;
import java.util.concurrent.atomic.AtomicInteger;
import org.junit.jupiter.api.Test;

class ProbeGateTest {
    private static final Duration LONG = Duration.ofSeconds(30);

    @Test
    void waitsUntilEventsAreRecorded() throws InterruptedException {
        AtomicInteger asked = new AtomicInteger();
        ProbeController.answer = () -> asked.incrementAndGet() == 3;
        assertTrue(ProbeGate.await(LONG));
        assertEquals(3, asked.get());
    }

    @Test
    void givesUpAfterTheLimit() throws InterruptedException {
        ProbeController.answer = () -> false;
        assertFalse(ProbeGate.await(Duration.ofMillis(120)));
    }

    @Test
    void doesNotWaitForALibraryThatIsNotThere() {
        ProbeController.answer = () -> {
            throw new UnsatisfiedLinkError();
        };
        assertFalse(assertTimeoutPreemptively(Duration.ofSeconds(5), () -> ProbeGate.await(LONG)));
    }
}
