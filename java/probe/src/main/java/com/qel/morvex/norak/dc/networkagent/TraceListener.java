package com.qel.morvex.norak.dc.networkagent;

/**
 * Sees what the collector writes to the network, while one of the traces is on. Called on the pump's threads:
 * a slow listener slows the pump. The arrays are copies that belong to the listener.
 */
public interface TraceListener {
    /**
     * One finished record.
     *
     * @param type the low byte of the record type, 208 (as a byte) for the initial record
     * @param threadId the thread that the record tells of, 0 if it has none
     * @param depth request depth, 0 if the record has none
     * @param record the record's bytes as they go on the wire
     */
    void record(byte type, int threadId, byte depth, byte[] record);

    /** One buffer on its way to the socket. */
    void buffer(byte[] data);
}
