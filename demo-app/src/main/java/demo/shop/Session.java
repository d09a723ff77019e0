package demo.shop;

import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.List;
import javax.sql.DataSource;

/**
 * One request's work on the database: holds a pooled connection and counts the statements it executes, a batch as
 * one. Used by the request's own thread only. What a transaction leaves uncommitted is rolled back on close.
 */
final class Session implements AutoCloseable {
    private static final ThreadLocal<Session> CURRENT = new ThreadLocal<>();

    private final DataSource pool;
    private final Connection connection;
    private int statements;

    interface RowReader {
        void read(ResultSet row) throws SQLException;
    }

    interface Work {
        void run() throws SQLException;
    }

    Session(DataSource pool) throws SQLException {
        this.pool = pool;
        connection = pool.getConnection();
        CURRENT.set(this);
    }

    /** The session of the request that this thread serves; for code that the database calls back. */
    static Session current() {
        return CURRENT.get();
    }

    int statements() {
        return statements;
    }

    /** Reads all rows; the reader may execute statements while the rows are open. */
    void query(String sql, RowReader reader, Object... values) throws SQLException {
        query(connection, sql, reader, values);
    }

    /** First column of the only row, 0 when there is none. */
    long number(String sql, Object... values) throws SQLException {
        return number(connection, sql, values);
    }

    /** As {@link #number}, beside a statement that is still running: on a second connection of the same pool. */
    long numberBeside(String sql, Object... values) throws SQLException {
        try (Connection second = pool.getConnection()) {
            return number(second, sql, values);
        }
    }

    int update(String sql, Object... values) throws SQLException {
        try (PreparedStatement statement = prepare(connection, sql, values)) {
            statements++;
            return statement.executeUpdate();
        }
    }

    void batch(String sql, List<Object[]> rows) throws SQLException {
        try (PreparedStatement statement = connection.prepareStatement(sql)) {
            for (Object[] row : rows) {
                bind(statement, row);
                statement.addBatch();
            }
            statements++;
            statement.executeBatch();
        }
    }

    /** Reads all rows of a text without parameters, unprepared. */
    void direct(String sql, RowReader reader) throws SQLException {
        try (Statement statement = connection.createStatement()) {
            statements++;
            statement.execute(sql);
            readAll(statement.getResultSet(), reader);
        }
    }

    void transaction(Work work) throws SQLException {
        connection.setAutoCommit(false);
        work.run();
        connection.commit();
        connection.setAutoCommit(true);
    }

    @Override
    public void close() throws SQLException {
        CURRENT.remove();
        try (connection) {
            if (!connection.getAutoCommit()) {
                connection.rollback();
                connection.setAutoCommit(true);
            }
        }
    }

    private long number(Connection on, String sql, Object... values) throws SQLException {
        long[] result = new long[1];
        query(on, sql, row -> result[0] = row.getLong(1), values);
        return result[0];
    }

    private void query(Connection on, String sql, RowReader reader, Object... values) throws SQLException {
        try (PreparedStatement statement = prepare(on, sql, values)) {
            statements++;
            readAll(statement.executeQuery(), reader);
        }
    }

    private static void readAll(ResultSet opened, RowReader reader) throws SQLException {
        try (ResultSet rows = opened) {
            while (rows.next()) {
                reader.read(rows);
            }
        }
    }

    private static PreparedStatement prepare(Connection on, String sql, Object... values) throws SQLException {
        PreparedStatement statement = on.prepareStatement(sql);
        bind(statement, values);
        return statement;
    }

    private static void bind(PreparedStatement statement, Object... values) throws SQLException {
        for (int i = 0; i < values.length; i++) {
            statement.setObject(i + 1, values[i]);
        }
    }
}
