package com.zykora.jdbc;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;

/** Where statements are reported: begin and end on one thread, one end for each begin. */
interface SqlSink {
    /** @param sql the statement's text, null if unknown */
    void begin(String sql, String dataSource);

    void end(String sql, String dataSource);

    /** The collector itself. */
    final class Natives implements SqlSink {
        @Override
        public void begin(String sql, String dataSource) {
            NativeEventAgentImpl.beginSQLRequestNative(sql, dataSource);
        }

        @Override
        public void end(String sql, String dataSource) {
            NativeEventAgentImpl.endSQLRequestNative(sql, dataSource);
        }
    }
}
