package com.zykora.command;

/** Commands that the operator's side gives to the agent. */
public final class CommandAgent {
    private CommandAgent() {
    }

    /** The number of a collected thread by its name and its group's name, compared exactly; 0 if there is none. */
    public static native int getThreadId(String threadName, String groupName);
}
