package amtest;

import com.qel.morvex.norak.dc.networkagent.NativeNetworkAgentImpl;
import com.qel.morvex.norak.dc.networkagent.TraceListener;

/** Keeps what the record trace showed as one line a record: "type thread depth bytes". */
public final class RecordedTrace implements TraceListener {
    private static final StringBuilder LINES = new StringBuilder();
    private static volatile boolean failing;

    private RecordedTrace() {
    }

    /** Becomes the listener; with {@code fail} each record is noted and then an exception is thrown. */
    public static void install(boolean fail) {
        failing = fail;
        NativeNetworkAgentImpl.setTraceListener(new RecordedTrace());
    }

    /** The lines since the last call. */
    public static synchronized String take() {
        String lines = LINES.toString();
        LINES.setLength(0);
        return lines;
    }

    @Override
    public void record(byte type, int threadId, byte depth, byte[] record) {
        synchronized (RecordedTrace.class) {
            LINES.append(type).append(' ').append(threadId).append(' ').append(depth).append(' ');
            for (byte value : record) {
                LINES.append(String.format("%02X", value));
            }
            LINES.append('\n');
        }
        if (failing) {
            throw new IllegalStateException("the listener fails");
        }
    }

    @Override
    public void buffer(byte[] data) {
        throw new UnsupportedOperationException("only records are traced");
    }
}
