package bench.child;

/** Natives of the benchmark's own library, against which the agent's are held. */
final class Comparison {
    static {
        System.load(System.getProperty("bench.library"));
    }

    private Comparison() {
    }

    static native void nothing(String one, String other);

    /** The same, and reads the thread's CPU clock and the wall clock once. */
    static native void clocks(String one, String other);

    /** Reads the thread CPU clock; false if the JVM does not offer it. */
    static native boolean cpuClock(int count);

    static native long wallClock(int count);

    /** Bytes that this process has from malloc. */
    static native long allocatedBytes();
}
