package amtest.host;

/** Stands in for the tools of the Java half and fails. */
public final class ThrowingTools {
    private ThrowingTools() {
    }

    public static byte[] getPropertyBytes(String name) {
        throw new IllegalStateException("getPropertyBytes of a test");
    }

    /** A call that works and one that fails, for natives that only call. */
    public static int received;

    public static void receive(int value) {
        received = value;
    }

    public static void refuse() {
        throw new IllegalStateException("refuse of a test");
    }
}
