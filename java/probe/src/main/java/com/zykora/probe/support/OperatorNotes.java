package com.zykora.probe.support;

import java.util.HashSet;
import java.util.Set;

/**
 * The one way in which the Java half speaks: a line on standard error, for what an operator has to put right.
 * Each text is printed once, and no more than {@value #MAX_NOTES} texts in the life of the process, so that a
 * fault that repeats can never flood the server's console. Safe for all threads.
 */
public final class OperatorNotes {
    private static final int MAX_NOTES = 16;
    private static final Set<String> PRINTED = new HashSet<String>();

    private OperatorNotes() {
    }

    /** Prints {@code text} after the prefix "## " unless it was printed before. Null is ignored. */
    public static void once(String text) {
        if (text != null && isNew(text)) {
            System.err.println("## " + text);
        }
    }

    private static boolean isNew(String text) {
        synchronized (PRINTED) {
            return PRINTED.size() < MAX_NOTES && PRINTED.add(text);
        }
    }
}
