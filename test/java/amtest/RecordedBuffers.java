package amtest;

import com.qel.morvex.norak.dc.networkagent.NativeNetworkAgentImpl;
import com.qel.morvex.norak.dc.networkagent.TraceListener;
import java.nio.charset.StandardCharsets;

/** Keeps what the buffer trace showed, in brackets, byte for character. */
public final class RecordedBuffers implements TraceListener {
    private static final StringBuilder TEXT = new StringBuilder();
    private static volatile boolean failing;

    private RecordedBuffers() {
    }

    /** Becomes the listener; with {@code fail} each buffer is noted and then an exception is thrown. */
    public static void install(boolean fail) {
        failing = fail;
        NativeNetworkAgentImpl.setTraceListener(new RecordedBuffers());
    }

    /** What came since the last call. */
    public static synchronized String take() {
        String text = TEXT.toString();
        TEXT.setLength(0);
        return text;
    }

    @Override
    public void record(byte type, int threadId, byte depth, byte[] record) {
        // Only buffers count here.
    }

    @Override
    public void buffer(byte[] data) {
        synchronized (RecordedBuffers.class) {
            TEXT.append('[').append(new String(data, StandardCharsets.ISO_8859_1)).append(']');
        }
        if (failing) {
            throw new IllegalStateException("the listener fails");
        }
    }
}
