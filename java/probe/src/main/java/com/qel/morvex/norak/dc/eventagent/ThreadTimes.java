package com.qel.morvex.norak.dc.eventagent;

/** Filled by {@link NativeEventAgentImpl#getThreadTimesNative}; the native half writes the fields by name. */
public final class ThreadTimes {
    /** CPU time of the thread in nanoseconds; never runs backwards within a request. */
    public long cpuTime;
    /** Wall clock, seconds since 1970. */
    public int timeSec_;
    /** Wall clock, microseconds within the second. */
    public int timeUSec_;
}
