package oracle.jdbc.driver;

/** Declares the two natives that an instrumented statement class of this name calls. */
public final class OracleStatement {
    public native void beginSQLRequest(String sql, String dataSrcName);

    public native void endSQLRequest(String sql, String dataSrcName);
}
