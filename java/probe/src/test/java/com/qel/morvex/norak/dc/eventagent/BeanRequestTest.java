package com.qel.morvex.norak.dc.eventagent;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;

import java.io.ByteArrayInputStream;
import java.io.DataInputStream;
import java.io.IOException;
import org.junit.jupiter.api.Test;

class BeanRequestTest {
    private static final int MOST = BeanRequest.MAX_TEXT_BYTES;

    @Test
    void layoutIsLengthsAndBytes() {
        byte[] expected = {0, 12, 0, 2, 'a', 'b', 0, 4, (byte) 0xC3, (byte) 0xA9, (byte) 0xC0, (byte) 0x80, 0, 0};
        assertArrayEquals(expected, BeanRequest.compose("ab", "\u00e9\0", null));
        assertArrayEquals(new byte[] {0, 6, 0, 0, 0, 0, 0, 0}, BeanRequest.compose("", null, ""));
    }

    @Test
    void longTextsAreCutBetweenCharactersAndStillFit() throws IOException {
        String pair = "\ud83d\ude00";
        String[][] cases = { // given, kept
            {"x".repeat(MOST), "x".repeat(MOST)},
            {"x".repeat(MOST + 1), "x".repeat(MOST)},
            {"\u20ac".repeat(MOST), "\u20ac".repeat(MOST / 3)},
            {"x" + "\u20ac".repeat(MOST / 3), "x" + "\u20ac".repeat(MOST / 3 - 1)},
            {"x".repeat(MOST - 1) + "\0", "x".repeat(MOST - 1)},
            {"x".repeat(MOST - 3) + pair, "x".repeat(MOST - 3)},
            {"x".repeat(MOST - 6) + pair + "y", "x".repeat(MOST - 6) + pair},
            {"x".repeat(MOST - 3) + "\ud83d" + "y", "x".repeat(MOST - 3) + "\ud83d"},
            {"y".repeat(10_000_000), "y".repeat(MOST)},
        };
        for (String[] text : cases) {
            byte[] bytes = BeanRequest.compose(text[0], text[0], text[0]);
            DataInputStream in = new DataInputStream(new ByteArrayInputStream(bytes));
            assertEquals(bytes.length - 2, in.readUnsignedShort());
            for (int i = 0; i < 3; i++) {
                assertEquals(text[1], in.readUTF());
            }
            assertEquals(-1, in.read());
        }
    }
}
