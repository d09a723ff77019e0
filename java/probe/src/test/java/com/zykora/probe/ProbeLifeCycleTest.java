package com.zykora.probe;

import static org.junit.jupiter.api.Assertions.assertDoesNotThrow;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qel.morvex.norak.toolkit.ai.runtimebuilder.RuntimeBuilder;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import java.util.Arrays;
import java.util.List;
import java.util.stream.Collectors;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.Assertions;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

@ExtendWith(RestoredProperties.class)
class ProbeLifeCycleTest {
    private final RecordingNatives natives = new RecordingNatives();
    private final ProbeLifeCycle lifeCycle = new ProbeLifeCycle(natives);
    @TempDir
    Path directory;

    @AfterEach
    void end() {
        lifeCycle.shutDown();
    }

    @Test
    void startsStopsAndEndsInOrder() throws InterruptedException {
        ProbeSystem.zykoraHome = null;
        assertTrue(lifeCycle.start());
        assertTrue(lifeCycle.start(), "a second start changes nothing");
        lifeCycle.stop();
        lifeCycle.stop();
        assertTrue(lifeCycle.start());
        lifeCycle.shutDown();
        lifeCycle.shutDown();
        assertFalse(lifeCycle.start(), "there is no way back");
        assertEquals(Arrays.asList("startService", "startThreadManager", "startProbe", "initializeProbe", "stopProbe",
                "startProbe", "initializeProbe", "shutDownService"), natives.calls);
    }

    @Test
    void tenCyclesLeaveNoThreadBehind() throws InterruptedException {
        for (int i = 0; i < 10; i++) {
            assertTrue(lifeCycle.start());
            lifeCycle.stop();
            assertFalse(lifeCycle.isRunning());
        }
        assertEquals(20, natives.poolThreads.size());
        assertTrue(natives.poolThreads.stream().noneMatch(Thread::isAlive));
    }

    @Test
    void poolThreadsAreNamedDaemonsWithTheConfiguredPriority() throws IOException {
        Files.writeString(directory.resolve("datacollector.properties"), "ea.thread.priority=3\n");
        System.setProperty("na.thread.priority", "9");
        RuntimeBuilder.buildRuntime(directory.toString());
        natives.eventAgents = 2;
        boolean[] inherited = {false};
        new InheritableThreadLocal<String>() {
            @Override
            protected String childValue(String value) {
                inherited[0] = true;
                return value;
            }
        }.set("of the application");
        lifeCycle.start();
        assertFalse(inherited[0]);
        assertEquals(Arrays.asList("am-event-agent-0 3", "am-event-agent-1 3", "am-network-agent-0 9"), poolThreads());
        assertTrue(natives.poolThreads.stream()
                .allMatch(thread -> thread.isDaemon() && thread.getContextClassLoader() == null
                        && thread.getThreadGroup().getParent() == null));

        lifeCycle.eventPool().setPriority(99);
        lifeCycle.networkPool().setPriority(-1);
        assertEquals(Arrays.asList("am-event-agent-0 10", "am-event-agent-1 10", "am-network-agent-0 1"),
                poolThreads());
    }

    private List<String> poolThreads() {
        return natives.poolThreads.stream().map(thread -> thread.getName() + " " + thread.getPriority()).sorted()
                .collect(Collectors.toList());
    }

    /** Whatever fails, nothing is thrown, and the end is told to the native half if it had begun. */
    @ParameterizedTest
    @CsvSource({
        "startService,       false, 0",
        "startThreadManager, false, 1",
        "startProbe,         false, 1",
        "initializeProbe,    false, 1",
        "stopProbe,          true,  1",
        "shutDownService,    true,  1",
    })
    void survivesAFailingCall(String call, boolean runs, int shutDowns) {
        natives.failingCall = call;
        assertEquals(runs, lifeCycle.start());
        assertDoesNotThrow(lifeCycle::stop);
        assertDoesNotThrow(lifeCycle::shutDown);
        assertEquals(shutDowns, natives.calls.stream().filter("shutDownService"::equals).count());
    }

    /** A native stop that hangs, and one that does not, seen by a hook that is interrupted meanwhile. */
    @ParameterizedTest
    @CsvSource({"60000, 1000, 900, 20000", "200, 60000, 200, 20000"})
    void theEndWaitsForTheStopButNotForEver(long stopTakes, long bound, long least, long most) {
        Thread.currentThread().interrupt();
        long from = System.nanoTime();
        ProbeService.runBounded(() -> {
            try {
                Thread.sleep(stopTakes);
            } catch (InterruptedException e) {
                throw new IllegalStateException(e);
            }
        }, bound);
        long taken = (System.nanoTime() - from) / 1000000;
        assertTrue(Thread.interrupted());
        assertTrue(taken >= least && taken < most, taken + " ms");
    }

    @Test
    void theEndOfTheJvmDoesNotWaitForAGateThatStaysClosed() throws InterruptedException {
        natives.gateOpens = false;
        Thread starter = new Thread(lifeCycle::start);
        starter.start();
        while (natives.poolThreads.size() < 2) {
            Thread.sleep(1);
        }
        Assertions.assertTimeout(Duration.ofSeconds(3), lifeCycle::shutDown);
        starter.join();
        assertEquals(1, natives.calls.stream().filter("shutDownService"::equals).count());
    }
}
