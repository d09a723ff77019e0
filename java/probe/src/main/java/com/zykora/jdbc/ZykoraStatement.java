package com.zykora.jdbc;

/**
 * Base for statement classes that report their SQL themselves. Begin and end must come on the same thread, one
 * end for each begin. Null strings are taken as empty.
 */
public class ZykoraStatement {
    public native void beginSQLRequest(String sql, String dataSrcName);

    public native void endSQLRequest(String sql, String dataSrcName);
}
