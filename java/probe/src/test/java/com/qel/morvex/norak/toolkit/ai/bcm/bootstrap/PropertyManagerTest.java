package com.qel.morvex.norak.toolkit.ai.bcm.bootstrap;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertTimeoutPreemptively;

import com.qel.morvex.norak.toolkit.ai.runtimebuilder.RuntimeBuilder;
import com.zykora.probe.RestoredProperties;
import java.io.IOException;
import java.io.RandomAccessFile;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.time.Duration;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

@ExtendWith(RestoredProperties.class)
class PropertyManagerTest {
    @TempDir
    Path directory;

    @ParameterizedTest
    @CsvSource(delimiter = '|', quoteCharacter = '"', ignoreLeadingAndTrailingWhitespace = false, value = {
        "a=b|a=b",
        "  a =  b c \t|a=b c",
        "a=b=c|a=b=c",
        "a=|a=",
        "path=C:\\dir\\new|path=C:\\dir\\new",
        "name=Zürich|name=Zürich",
        "#a=b|",
        "  # a=b|",
        "=b|",
        "word|",
        "\"\"|",
        "\uFEFFa=b|a=b",
    })
    void readsOneSettingPerLine(String line, String expected) throws IOException {
        write("dc.env.properties", line);
        assertArrayEquals(expected == null ? new String[0] : new String[] {expected},
                PropertyManager.getEnvVariables(directory.resolve("dc.env.properties").toString()));
    }

    @Test
    void whatCannotBeReadIsAbsent() throws Exception {
        Files.createDirectory(directory.resolve("datacollector.properties"));
        try (RandomAccessFile huge = new RandomAccessFile(directory.resolve("huge").toFile(), "rw")) {
            huge.setLength(1L << 40);
        }
        assertNull(PropertyManager.getEnvVariables(null));
        assertNull(PropertyManager.getEnvVariables(""));
        assertNull(PropertyManager.getEnvVariables(directory.resolve("none").toString()));
        assertNull(PropertyManager.getEnvVariables("bad\0name"));
        assertNull(PropertyManager.getEnvVariables(directory.resolve("huge").toString()));
        Path pipe = directory.resolve("pipe");
        assertEquals(0, new ProcessBuilder("mkfifo", pipe.toString()).start().waitFor());
        assertNull(assertTimeoutPreemptively(Duration.ofMinutes(1),
                () -> PropertyManager.getEnvVariables(pipe.toString())));
        assertNull(PropertyManager.getEnvVariables("/proc/self/pagemap"), "longer than it says");
        assertNull(PropertyManager.defineProps(null, "*", "ZYK"));
        assertNull(PropertyManager.defineProps("", "*", "ZYK"));
        assertNull(PropertyManager.defineProps(directory.resolve("none").toString(), "*", "ZYK"));
        assertNull(PropertyManager.defineProps(directory.toString(), "datacollector*.properties", "ZYK"));
    }

    @Test
    void brokenEncodingCostsNoLine() throws IOException {
        Files.write(directory.resolve("f"), new byte[] {'a', '=', (byte) 0xE9, '\n', 'b', '=', '1', '\n'});
        assertEquals("b=1", PropertyManager.getEnvVariables(directory.resolve("f").toString())[1]);
    }

    @Test
    void laterFilesComeBehindTheMainOneAndStrangersStayOut() throws IOException {
        write("datacollector_site.properties", "k=site");
        write("datacollector-a.properties", "k=a");
        write("datacollector.properties", "k=main");
        write("datacollector.properties.bak", "k=old");
        write("my-datacollector.properties", "k=mine");
        Files.createDirectory(directory.resolve("datacollector.d.properties"));
        assertArrayEquals(new String[] {"k=main", "k=a", "k=site"},
                PropertyManager.defineProps(directory.toString(), "datacollector*.properties", "ZYK"));

        RuntimeBuilder.buildRuntime(directory.toString());
        assertEquals("site", PropertyManager.collectorProperties().get("k"));
    }

    @Test
    void systemPropertiesGiveDefaultsForKnownKeysOnly() {
        System.setProperty("internal.memory.limit", "17");
        System.setProperty("internal.memory.limits", "18");
        assertArrayEquals(new String[] {"internal.memory.limit=17"},
                PropertyManager.defineSysProps(directory.toString()));
    }

    private void write(String name, String... lines) throws IOException {
        Files.write(directory.resolve(name), String.join("\n", lines).getBytes(StandardCharsets.UTF_8));
    }
}
