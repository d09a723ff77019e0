package com.zykora.probe;

import java.util.function.BooleanSupplier;

/** Stands where a collector's class is when there is one; answers as the test says. */
public final class ProbeController {
    public static volatile BooleanSupplier answer = () -> false;

    private ProbeController() {
    }

    public static boolean isNativeProbeEnabled() {
        return answer.getAsBoolean();
    }
}
