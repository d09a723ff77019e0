package com.qel.morvex.norak.toolkit.ai.runtimebuilder;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.zykora.probe.RestoredProperties;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.Arrays;
import java.util.Collections;
import java.util.HashSet;
import java.util.Set;
import java.util.concurrent.Callable;
import java.util.concurrent.ExecutorService;
import java.util.concurrent.Executors;
import java.util.concurrent.Future;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;
import org.junit.jupiter.api.io.TempDir;

@ExtendWith(RestoredProperties.class)
class RuntimeBuilderTest {
    @TempDir
    Path root;

    @BeforeEach
    void install() throws IOException {
        Path samples = Files.createDirectories(root.resolve("home/etc"));
        Files.writeString(samples.resolve("datacollector.properties"), "k=sample");
        Files.writeString(samples.resolve("dc.env.properties"), "# none");
        Files.writeString(samples.resolve("am.mod"), "1");
        Files.createDirectory(samples.resolve("no-file.properties"));
        System.setProperty("am.home", root.resolve("home").toString());
    }

    @Test
    void makesOrFillsADirectoryButLeavesAnyOtherAlone() throws IOException {
        for (Path wanted : new Path[] {Files.createDirectory(root.resolve("empty")), root.resolve("deep/er")}) {
            assertTrue(RuntimeBuilder.buildRuntime(wanted.toString()));
            assertEquals(wanted.toString(), RuntimeBuilder.getRuntimeDirName());
            assertEquals("k=sample", Files.readString(wanted.resolve("datacollector.properties")));
            assertEquals(Set.of("datacollector.properties", "dc.env.properties"), names(wanted), "samples only");
        }
        for (String place : new String[] {"home/etc/am.mod", "home/etc/am.mod/below", "bad\0name"}) {
            assertFalse(RuntimeBuilder.buildRuntime(root + "/" + place), place);
        }

        Path failed = Files.createDirectories(root.resolve("failed/ZYK")).getParent();
        Files.writeString(failed.resolve("am.mod"), "3");
        assertTrue(RuntimeBuilder.buildRuntime(failed.toString()), "what a start without settings leaves");
        assertEquals("k=sample", Files.readString(failed.resolve("datacollector.properties")));
        assertEquals("3", Files.readString(failed.resolve("am.mod")));

        Path owned = Files.createDirectory(root.resolve("owned"));
        Files.writeString(owned.resolve("datacollector.properties"), "k=edited");
        assertTrue(RuntimeBuilder.buildRuntime(owned.toString()));
        assertEquals("k=edited", Files.readString(owned.resolve("datacollector.properties")));
        assertFalse(Files.exists(owned.resolve("dc.env.properties")));
    }

    @Test
    void aFailedMakingIsCompletedByTheNextStart() throws IOException {
        Path broken = root.resolve("home/etc/datacollector_z.properties");
        Files.createSymbolicLink(broken, root.resolve("gone"));
        Path wanted = root.resolve("runtime");
        assertFalse(RuntimeBuilder.buildRuntime(wanted.toString()));
        Files.deleteIfExists(wanted.resolve("dc.env.properties"));
        Files.writeString(wanted.resolve("datacollector.properties"), "k=edited");
        assertEquals(Set.of(".unfinished", "datacollector.properties"), names(wanted), "no part of a file stays");

        Files.delete(broken);
        assertTrue(RuntimeBuilder.buildRuntime(wanted.toString()));
        assertEquals(Set.of("dc.env.properties", "datacollector.properties"), names(wanted));
        assertEquals("k=edited", Files.readString(wanted.resolve("datacollector.properties")));
    }

    @Test
    void serversThatStartAtOnceAllFindTheWholeSet() throws Exception {
        for (int i = 0; i < 40; i++) {
            Files.writeString(root.resolve("home/etc/sample" + i + ".properties"), "k=" + i);
        }
        Set<String> all = names(root.resolve("home/etc"));
        all.removeAll(Set.of("am.mod", "no-file.properties"));
        ExecutorService servers = Executors.newFixedThreadPool(4);
        try {
            for (int round = 0; round < 20; round++) {
                Path wanted = root.resolve("runtime" + round);
                Callable<Set<String>> start = () -> {
                    assertTrue(RuntimeBuilder.buildRuntime(wanted.toString()));
                    Set<String> found = names(wanted);
                    found.removeIf(name -> !name.endsWith(".properties"));
                    return found;
                };
                for (Future<Set<String>> found : servers.invokeAll(Collections.nCopies(4, start))) {
                    assertEquals(all, found.get());
                }
                assertEquals(all, names(wanted));
            }
        } finally {
            servers.shutdownNow();
        }
    }

    private static Set<String> names(Path directory) {
        return new HashSet<>(Arrays.asList(directory.toFile().list()));
    }

    @Test
    void computesTheDirectoryWhenTheOptionsNameNone() {
        System.setProperty("norak61.home", root.resolve("norak").toString());
        System.setProperty("appserver.platform", "tomcat10");
        System.setProperty("am.nodename", "node1");
        for (String nothing : Arrays.asList(null, "")) {
            System.setProperty("am.appserver", nothing == null ? "shop" : "bank");
            assertTrue(RuntimeBuilder.buildRuntime(nothing));
            String expected = root + "/norak/runtime/tomcat10.node1." + (nothing == null ? "shop" : "bank");
            assertEquals(expected, RuntimeBuilder.getRuntimeDirName());
            assertTrue(Files.exists(Path.of(expected, "datacollector.properties")));
        }
        System.clearProperty("am.nodename");
        System.clearProperty("am.appserver");
        RuntimeBuilder.buildRuntime("");
        assertTrue(RuntimeBuilder.getRuntimeDirName().endsWith("/tomcat10.defaultnode.appserver"));
    }

    @Test
    void leavesThingsAloneWhereHomesAreUnknown() {
        assertFalse(RuntimeBuilder.buildRuntime(""), "no product home");
        assertNull(RuntimeBuilder.getRuntimeDirName());

        System.clearProperty("am.home");
        String wanted = root.resolve("runtime").toString();
        assertFalse(RuntimeBuilder.buildRuntime(wanted), "no samples");
        assertEquals(wanted, RuntimeBuilder.getRuntimeDirName());
        assertFalse(Files.exists(Path.of(wanted)));
    }
}
