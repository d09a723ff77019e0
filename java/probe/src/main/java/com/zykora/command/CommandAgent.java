package com.zykora.command;

/** Commands that the operator's side gives to the agent. */
public final class CommandAgent {
    private CommandAgent() {
    }

    /** The number of a collected thread by its name and its group's name, compared exactly; 0 if there is none. */
    public static native int getThreadId(String threadName, String groupName);

    /**
     * A token of correlation: 4 bytes, the most significant first, unique over all restarts and collectors whose regions
     * differ. Null when memory is out.
     */
    public static native byte[] getNativeGpsToken();
}
