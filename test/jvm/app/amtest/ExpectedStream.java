package amtest;

import java.io.ByteArrayOutputStream;
import java.io.Closeable;
import java.io.IOException;
import java.io.PrintStream;
import java.util.Arrays;

/**
 * The records that one thread's calls must make, in the plainest form: what is open is counted, and each record is
 * written as a line of hexadecimal digits, with dots for the bytes of clocks.
 */
final class ExpectedStream implements Closeable {
    final boolean suppresses;
    final int urlLimit;
    final int sqlLimit;
    int thread;
    int level = 1;
    int depth;
    int suppressed;
    int wrappers;
    private final PrintStream out;
    private String origin;

    ExpectedStream(String file, boolean suppresses, int urlLimit, int sqlLimit) throws IOException {
        out = new PrintStream(file);
        this.suppresses = suppresses;
        this.urlLimit = urlLimit;
        this.sqlLimit = sqlLimit;
    }

    /** Names the call whose records follow. */
    void from(String call) {
        origin = call;
    }

    @Override
    public void close() {
        out.close();
    }

    // ---- depth

    private boolean suppressing() {
        return suppresses && level == 1;
    }

    private boolean suppressBegin() {
        boolean swallowed = suppressing() && depth >= 1;
        suppressed += swallowed ? 1 : 0;
        return swallowed;
    }

    private boolean suppressEnd() {
        boolean swallowed = suppressing() && suppressed > 0;
        suppressed -= swallowed ? 1 : 0;
        return swallowed;
    }

    private void leave() {
        depth -= depth > 0 ? 1 : 0;
    }

    void http(String name, String application, String url, String user) {
        if (suppressBegin()) {
            return;
        }
        depth++;
        byte[] address = cut(url, urlLimit, false);
        boolean same = Arrays.equals(cut(name, urlLimit, false), address)
                && Arrays.equals(cut(application, urlLimit, false), address);
        record(4, "p1uuusl", same ? 0 : 1, same ? "" : name, same ? "" : application, url, user);
    }

    void endHttp(int type, String name) {
        if (depth >= 1) {
            if (type == 5 && suppressEnd()) {
                return;
            }
            depth = "JSP_CANCEL_REQUEST".equals(name) ? 0 : depth - 1;
        }
        depth++;
        record(type, "pl");
        depth--;
    }

    void statement(boolean wrapper, String sql, String source) {
        if (wrapper ? suppressBegin() : wrappers >= 1) {
            return;
        }
        wrappers += wrapper ? 1 : 0;
        depth++;
        record(9, "plsS", source, sql);
    }

    void endStatement(boolean wrapper) {
        if (wrapper ? suppressEnd() : wrappers >= 1) {
            return;
        }
        wrappers -= wrapper ? 1 : 0;
        record(10, "pl");
        leave();
    }

    /** Inside a request only. */
    void nested(int type, String form, Object... values) {
        if (depth != 0 && !suppressBegin()) {
            depth++;
            record(type, form, values);
        }
    }

    void endNested(int type) {
        if (depth != 0 && !suppressEnd()) {
            record(type, "pl");
            leave();
        }
    }

    /** The same at every level. */
    void plain(int type, String form, Object... values) {
        if (depth != 0) {
            depth++;
            record(type, form, values);
        }
    }

    void endPlain(int type, String form, Object... values) {
        if (depth != 0) {
            record(type, form, values);
            leave();
        }
    }

    /** Recorded below an open level only. */
    void inner(int type, String form, Object... values) {
        if (!suppressBegin() && ++depth > 1) {
            record(type, form, values);
        }
    }

    void endInner(int type) {
        if (depth == 0 || suppressEnd()) {
            return;
        }
        if (depth > 1) {
            record(type, "pl");
        }
        leave();
    }

    /** Everywhere. */
    void any(int type, String form, Object... values) {
        if (!suppressBegin()) {
            depth++;
            record(type, form, values);
        }
    }

    void endAny(int type, String form, Object... values) {
        if (depth < 1 || !suppressEnd()) {
            record(type, form, values);
            leave();
        }
    }

    /** Counted without any test, below 0 too. */
    void counted(int type, String form, Object... values) {
        depth++;
        record(type, form, values);
    }

    void endCounted(int type) {
        endCounted(type, "pl");
    }

    void endCounted(int type, String form, Object... values) {
        record(type, form, values);
        depth--;
    }

    void queuedToken(int action, String queue, byte[] token) {
        int type = action == 10 || action == 11 ? 55 : action == 7 || action == 13 ? 57 : 0;
        if (depth == 0 || type == 0) {
            return;
        }
        depth++;
        record(type, "psb1l", queue, sendable(token), action == 7 ? 1 : 0);
        record(type + 1, "pl");
        leave();
    }

    static byte[] sendable(byte[] token) {
        return token == null || token.length > 0xFFFF ? new byte[0] : token;
    }

    // ---- bytes

    /**
     * One record: p prefix, l level, c wall clock, k both clocks, t thread, x another one, s text, u one of a limited address, S of a limited
     * statement, b counted bytes, r bytes as they are, 1 4 8 numbers of so many bytes, z four
     * zeros.
     */
    void record(int type, String form, Object... values) {
        StringBuilder line = new StringBuilder(number(type, 1));
        int next = 0;
        for (char part : form.toCharArray()) {
            switch (part) {
                case 'p' -> line.append(number(thread, 4)).append(number(depth, 1)).append(".".repeat(32));
                case 'l' -> line.append(number(level, 1));
                case 'c' -> line.append(".".repeat(16));
                case 'k' -> line.append(".".repeat(32));
                case 'x' -> line.append(".".repeat(8));
                case 't' -> line.append(number(thread, 4));
                case 'z' -> line.append(number(0, 4));
                case 's' -> line.append(counted(cut((String) values[next++], 0x10000, true)));
                case 'u' -> line.append(counted(cut((String) values[next++], urlLimit, false)));
                case 'S' -> line.append(counted(cut((String) values[next++], sqlLimit, true)));
                case 'b' -> line.append(counted((byte[]) values[next++]));
                case 'r' -> line.append(hex((byte[]) values[next++]));
                default -> line.append(number(((Number) values[next++]).longValue(), part - '0'));
            }
        }
        out.println(line + "7f7f " + origin);
    }

    private static String number(long value, int bytes) {
        return String.format("%016x", value).substring(16 - 2 * bytes);
    }

    private static String counted(byte[] bytes) {
        return number(bytes.length, 2) + hex(bytes);
    }

    static String hex(byte[] bytes) {
        StringBuilder digits = new StringBuilder();
        for (byte b : bytes) {
            digits.append(Character.forDigit(b >> 4 & 15, 16)).append(Character.forDigit(b & 15, 16));
        }
        return digits.toString();
    }

    /** Modified UTF-8. */
    private static byte[] encoded(String text) {
        ByteArrayOutputStream bytes = new ByteArrayOutputStream();
        for (char c : (text == null ? "" : text).toCharArray()) {
            if (c != 0 && c < 0x80) {
                bytes.write(c);
            } else if (c < 0x800) {
                bytes.write(0xC0 | c >> 6);
                bytes.write(0x80 | c & 0x3F);
            } else {
                bytes.write(0xE0 | c >> 12);
                bytes.write(0x80 | c >> 6 & 0x3F);
                bytes.write(0x80 | c & 0x3F);
            }
        }
        return bytes.toByteArray();
    }

    /** Limits count a NUL that is not sent. All but addresses are cut ahead of a character that has no room. */
    private static byte[] cut(String text, int limit, boolean atCharacter) {
        byte[] bytes = encoded(text);
        if (bytes.length < limit) {
            return bytes;
        }
        int kept = limit - 1;
        while (atCharacter && kept > 0 && (bytes[kept] & 0xC0) == 0x80) {
            kept--;
        }
        return Arrays.copyOf(bytes, kept);
    }
}
