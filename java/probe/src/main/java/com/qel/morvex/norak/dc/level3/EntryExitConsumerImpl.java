package com.qel.morvex.norak.dc.level3;

import com.zykora.probe.l3trace.BcmRuntime;
import java.util.Map;
import java.util.concurrent.ConcurrentHashMap;

/** The traced classes of this JVM, which every new connection has to be told of. May be called by any thread. */
public final class EntryExitConsumerImpl {
    private static final Map<Integer, TracedClass> CLASSES = new ConcurrentHashMap<Integer, TracedClass>();

    private EntryExitConsumerImpl() {
    }

    /**
     * Keeps a class and tells of it; what its natives demand is said there.
     *
     * @param sequence its number; a class with the same one is replaced
     */
    public static boolean classLoaded(int sequence, String className, int[] methodIds, String[] names,
            String[] signatures) {
        TracedClass loaded = new TracedClass(className, methodIds, names, signatures);
        CLASSES.put(sequence, loaded);
        return loaded.send(sequence);
    }

    /** Forgets the class and tells that it is gone; false if there was none. */
    public static boolean classUnloaded(int sequence) {
        TracedClass gone = CLASSES.remove(sequence);
        return gone != null && BcmRuntime.sendClassUnloadEventNative(sequence, gone.className, gone.methodIds);
    }

    /** Called by the native half when a new connection needs the data of every traced class once more. */
    public static void sendAllClassEvents() {
        for (Map.Entry<Integer, TracedClass> each : CLASSES.entrySet()) {
            each.getValue().send(each.getKey());
        }
    }

    private static final class TracedClass {
        final String className;
        final int[] methodIds;
        private final String[] names;
        private final String[] signatures;

        TracedClass(String className, int[] methodIds, String[] names, String[] signatures) {
            this.className = className;
            this.methodIds = methodIds;
            this.names = names;
            this.signatures = signatures;
        }

        boolean send(int sequence) {
            return BcmRuntime.sendClassEventNative(sequence, className, methodIds, names, signatures);
        }
    }
}
