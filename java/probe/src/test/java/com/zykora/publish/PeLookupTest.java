package com.zykora.publish;

import static org.junit.jupiter.api.Assertions.assertEquals;

import com.qel.morvex.norak.toolkit.ai.runtimebuilder.RuntimeBuilder;
import com.zykora.probe.RestoredProperties;
import java.io.IOException;
import java.nio.file.Files;
import java.nio.file.Path;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;
import org.junit.jupiter.api.io.TempDir;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

@ExtendWith(RestoredProperties.class)
class PeLookupTest {
    @TempDir
    Path directory;

    /** Host, port and buffer as system properties, then as lines of the file; the address found, or none. */
    @ParameterizedTest
    @CsvSource({
        "sys, 1, 2, file, 3, 4, sys:1:2",
        "sys,  ,  , file, 3, 4, sys:3:4",
        "   ,  ,  , file, 3,  , file:3:65536",
        "   ,  ,  , file,  ,  , ",
        "   , 1,  ,     ,  ,  , ",
        "sys, 0,  ,     ,  ,  , ",
        "sys, 65535, ,  ,  ,  , sys:65535:65536",
        "sys, 65536, ,  ,  ,  , ",
        "sys, 1x, , file, 3, 4, ",
        "sys, 1, -5,    ,  ,  , sys:1:65536",
    })
    void findsTheServer(String host, String port, String buffer, String fileHost, String filePort,
            String fileBuffer, String expected) throws IOException {
        String[] keys = {"publish.server.host", "publish.server.port", "publish.server.sendbuffer"};
        String[] system = {host, port, buffer};
        String[] file = {fileHost, filePort, fileBuffer};
        StringBuilder lines = new StringBuilder("k=v\n");
        for (int i = 0; i < keys.length; i++) {
            if (system[i] != null) {
                System.setProperty(keys[i], system[i]);
            }
            if (file[i] != null) {
                lines.append(keys[i]).append(" = ").append(file[i]).append('\n');
            }
        }
        useFile(lines.toString());
        assertEquals(expected, lookUp());
    }

    @Test
    void seesAChangedAddressAndKeepsTheLastGoodOne() throws IOException {
        useFile("publish.server.host=one\npublish.server.port=1\n");
        assertEquals("one:1:65536", lookUp());
        useFile("publish.server.host=two\npublish.server.port=2\n");
        assertEquals("two:2:65536", lookUp());
        useFile("publish.server.host=three\n");
        assertEquals(null, lookUp());
        assertEquals("two", pe_lookup.hostName_);
    }

    private void useFile(String text) throws IOException {
        Files.writeString(directory.resolve("datacollector.properties"), text);
        RuntimeBuilder.buildRuntime(directory.toString());
    }

    private static String lookUp() {
        return pe_lookup.initialize() == 1
                ? pe_lookup.hostName_ + ":" + pe_lookup.port_ + ":" + pe_lookup.sendBuffSize_
                : null;
    }
}
