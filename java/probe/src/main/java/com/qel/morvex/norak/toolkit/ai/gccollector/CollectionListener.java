package com.qel.morvex.norak.toolkit.ai.gccollector;

import com.sun.management.GarbageCollectionNotificationInfo;
import com.sun.management.GcInfo;
import java.lang.management.GarbageCollectorMXBean;
import java.lang.management.ManagementFactory;
import java.lang.management.MemoryPoolMXBean;
import java.lang.management.MemoryType;
import java.lang.management.MemoryUsage;
import java.util.HashSet;
import java.util.Map;
import java.util.Queue;
import java.util.Set;
import java.util.concurrent.ArrayBlockingQueue;
import javax.management.Notification;
import javax.management.NotificationEmitter;
import javax.management.NotificationListener;
import javax.management.openmbean.CompositeData;

/**
 * Hears of collections on the JVM's own thread, which must not wait, and keeps them until they are asked for. Stands by
 * itself: a JVM without the management modules goes without it.
 */
final class CollectionListener implements NotificationListener {
    private static final int MOST_KEPT = 1000;

    /** Start and end in milliseconds since 1970, bytes used afterwards, bytes of the heap. */
    private final Queue<long[]> kept = new ArrayBlockingQueue<long[]>(MOST_KEPT);
    private final Set<String> heapPools = new HashSet<String>();
    private final long jvmStart = ManagementFactory.getRuntimeMXBean().getStartTime();

    /**
     * A concurrent collector reports its cycles and, apart from them, the pauses within these; a cycle is what frees
     * memory, so it is what counts.
     */
    void listen() {
        for (MemoryPoolMXBean pool : ManagementFactory.getMemoryPoolMXBeans()) {
            if (pool.getType() == MemoryType.HEAP) {
                heapPools.add(pool.getName());
            }
        }
        for (GarbageCollectorMXBean collector : ManagementFactory.getGarbageCollectorMXBeans()) {
            if (collector instanceof NotificationEmitter && !collector.getName().endsWith("Pauses")) {
                ((NotificationEmitter) collector).addNotificationListener(this, null, null);
            }
        }
    }

    /** Hands what was heard to the native half, unless the operator wants none of it. */
    void reportAll() {
        for (long[] each = kept.poll(); each != null; each = kept.poll()) {
            if (!GCEventNativeAgent.isGCEventCollectionSuppressed()) {
                GCEventNativeAgent.putGCCycleToQueueNative(each[0], each[1], 0, each[2], each[3]);
            }
        }
    }

    @Override
    public void handleNotification(Notification notification, Object handback) {
        try {
            if (GarbageCollectionNotificationInfo.GARBAGE_COLLECTION_NOTIFICATION.equals(notification.getType())) {
                CompositeData data = (CompositeData) notification.getUserData();
                kept.offer(figuresOf(GarbageCollectionNotificationInfo.from(data).getGcInfo()));
                GCEventNativeAgent.forceNotify();
            }
        } catch (Throwable lost) {
            // A collection less; the JVM's thread must go on.
        }
    }

    private long[] figuresOf(GcInfo info) {
        long used = 0;
        long total = 0;
        for (Map.Entry<String, MemoryUsage> pool : info.getMemoryUsageAfterGc().entrySet()) {
            if (heapPools.contains(pool.getKey())) {
                used += pool.getValue().getUsed();
                total += pool.getValue().getCommitted();
            }
        }
        return new long[] {jvmStart + info.getStartTime(), jvmStart + info.getEndTime(), used, total};
    }
}
