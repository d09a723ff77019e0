package com.zykora.probe;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qel.morvex.norak.toolkit.ai.bcm.bootstrap.BcmBootstrap;
import java.io.File;
import java.io.IOException;
import java.net.URISyntaxException;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.List;
import java.util.concurrent.TimeUnit;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import org.junit.jupiter.api.Test;

/** The classes as they are used: behind the boot loader of a JVM of their own, here one without the agent. */
class BootClassPathTest {
    @Test
    void allClassesLinkWithNothingButTheBaseModule() throws Exception {
        Path classes = classesOf(BcmBootstrap.class);
        String names;
        try (Stream<Path> files = Files.walk(classes)) {
            names = files.map(file -> classes.relativize(file).toString()).filter(name -> name.endsWith(".class") && !name.endsWith("CollectionListener.class"))
                    .map(name -> name.substring(0, name.length() - 6).replace(File.separatorChar, '.'))
                    .collect(Collectors.joining(","));
        }
        assertEquals("", run("link", names));
        assertTrue(names.contains("pe_lookup"));
    }

    @Test
    void aServerWithoutTheAgentRunsOnInSilence() throws Exception {
        assertEquals("", run("start", ""));
    }

    @Test
    void theOffSwitchIsToldByAnException() throws Exception {
        assertEquals("NORAK_DC_ENABLED is false", run("start", "", "-DNORAK_DC_ENABLED=False").trim());
    }

    private static String run(String what, String argument, String... options) throws Exception {
        Path java = Path.of(System.getProperty("java.home"), "bin", "java");
        List<String> command = Stream.of(List.of(java.toString(), "--limit-modules", "java.base",
                        "-Xbootclasspath/a:" + classesOf(BcmBootstrap.class)), List.of(options),
                List.of("-cp", classesOf(Child.class).toString(), Child.class.getName(), what, argument))
                .flatMap(List::stream).collect(Collectors.toList());
        Process process = new ProcessBuilder(command).redirectErrorStream(true).start();
        String output = new String(process.getInputStream().readAllBytes());
        assertTrue(process.waitFor(30, TimeUnit.SECONDS));
        assertEquals(0, process.exitValue(), output);
        return output;
    }

    private static Path classesOf(Class<?> type) throws IOException, URISyntaxException {
        return Path.of(type.getProtectionDomain().getCodeSource().getLocation().toURI());
    }

    /** Runs in the other JVM. */
    static final class Child {
        public static void main(String[] args) throws Exception {
            if (args[0].equals("link")) {
                link(args[1].split(","));
            } else {
                start();
            }
        }

        private static void link(String[] names) throws ClassNotFoundException {
            for (String name : names) {
                Class<?> type = Class.forName(name);
                type.getDeclaredMethods();
                if (type.getClassLoader() != null) {
                    System.out.println(name + " did not come from the boot loader");
                }
            }
        }

        private static void start() throws InterruptedException {
            try {
                BcmBootstrap.staticInit();
            } catch (IllegalStateException off) {
                System.out.println(off.getMessage());
                return;
            }
            Thread.sleep(200);
            if (ProbeService.start() || ProbeService.isRunning()) {
                System.out.println("runs without natives");
            }
            ProbeService.stop();
            ProbeSystem.setEAPoolPriority(8);
            BcmBootstrap.disable();
        }
    }
}
