package amtest;

import com.qel.morvex.norak.dc.networkagent.NativeNetworkAgentImpl;
import com.qel.morvex.norak.dc.networkagent.TraceListener;
import java.nio.charset.StandardCharsets;

/** Keeps what the traces showed: a record as a line "type thread depth bytes", a buffer in brackets. */
public final class RecordedTrace implements TraceListener {
    private static final StringBuilder LINES = new StringBuilder();
    private static volatile boolean failing;

    private RecordedTrace() {
    }

    /** Becomes the listener; with {@code fail} each is noted and then an exception is thrown. */
    public static void install(boolean fail) {
        failing = fail;
        NativeNetworkAgentImpl.setTraceListener(new RecordedTrace());
    }

    /** What came since the last call. */
    public static synchronized String take() {
        String lines = LINES.toString();
        LINES.setLength(0);
        return lines;
    }

    @Override
    public void record(byte type, int threadId, byte depth, byte[] record) {
        StringBuilder line = new StringBuilder().append(type).append(' ').append(threadId).append(' ').append(depth);
        line.append(' ');
        for (byte value : record) {
            line.append(String.format("%02X", value));
        }
        keep(line.append('\n').toString());
    }

    @Override
    public void buffer(byte[] data) {
        keep("[" + new String(data, StandardCharsets.ISO_8859_1) + "]");
    }

    private static void keep(String text) {
        synchronized (RecordedTrace.class) {
            LINES.append(text);
        }
        if (failing) {
            throw new IllegalStateException("the listener fails");
        }
    }
}
