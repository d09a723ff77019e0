package com.zykora.probe;

/** The performance-metrics entry, which needs no preparation here. */
public final class ProbePMI {
    private ProbePMI() {
    }

    /** Always true. */
    public static native boolean initializeProbe();
}
