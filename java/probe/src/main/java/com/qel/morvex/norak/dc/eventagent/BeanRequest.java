package com.qel.morvex.norak.dc.eventagent;

import java.io.ByteArrayOutputStream;
import java.io.DataOutputStream;
import java.io.IOException;

/**
 * Composes the bytes of a bean request for {@link NativeEventAgentImpl#beginEJBRequestNative}: a u16 with the
 * length of all that follows, then bean, method and application, each as a u16 length and modified UTF-8. They
 * go to the receiver as they are, which finds the end of the record by them. Any thread.
 */
public final class BeanRequest {
    /** The most bytes of one text: three of them, each with its length, fill what the outer u16 can tell. */
    public static final int MAX_TEXT_BYTES = (0xFFFF - 3 * 2) / 3;

    private BeanRequest() {
    }

    /** Never null. A null text counts as empty; one that is too long is cut before the character that exceeds it. */
    public static byte[] compose(String bean, String method, String application) {
        ByteArrayOutputStream texts = new ByteArrayOutputStream();
        ByteArrayOutputStream whole = new ByteArrayOutputStream();
        try {
            DataOutputStream out = new DataOutputStream(texts);
            out.writeUTF(cut(bean));
            out.writeUTF(cut(method));
            out.writeUTF(cut(application));
            new DataOutputStream(whole).writeShort(texts.size());
            texts.writeTo(whole);
        } catch (IOException e) {
            throw new AssertionError(e); // memory does not fail to be written, and the texts fit
        }
        return whole.toByteArray();
    }

    private static String cut(String text) {
        if (text == null) {
            return "";
        }
        int bytes = 0;
        for (int at = 0; at < text.length(); at++) {
            bytes += encodedLength(text.charAt(at));
            if (bytes > MAX_TEXT_BYTES) {
                return text.substring(0, splitsPair(text, at) ? at - 1 : at);
            }
        }
        return text;
    }

    private static int encodedLength(char c) {
        return c >= 0x800 ? 3 : c >= 0x80 || c == 0 ? 2 : 1;
    }

    private static boolean splitsPair(String text, int at) {
        return at > 0 && Character.isSurrogatePair(text.charAt(at - 1), text.charAt(at));
    }
}
