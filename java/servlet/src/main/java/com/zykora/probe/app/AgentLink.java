package com.zykora.probe.app;

import com.zykora.probe.ProbeController;

/** Whether the native half is there at all, found out once: an agent cannot come later. */
public final class AgentLink {
    private static final boolean PRESENT = find();

    private AgentLink() {
    }

    /** True if the natives may be called. */
    public static boolean isPresent() {
        return PRESENT;
    }

    private static boolean find() {
        try {
            ProbeController.isNativeProbeEnabled();
            return true;
        } catch (LinkageError absent) {
            return false;
        }
    }
}
