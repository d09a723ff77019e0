package com.zykora.jdbc;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertInstanceOf;
import static org.junit.jupiter.api.Assertions.assertNotEquals;
import static org.junit.jupiter.api.Assertions.assertNull;
import static org.junit.jupiter.api.Assertions.assertSame;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.sql.BatchUpdateException;
import java.sql.CallableStatement;
import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.PreparedStatement;
import java.sql.ResultSet;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.ArrayList;
import java.util.List;
import java.util.Properties;
import org.h2.jdbc.JdbcConnection;
import org.h2.jdbc.JdbcSQLSyntaxErrorException;
import org.h2.jdbc.JdbcStatement;
import org.junit.jupiter.api.AfterEach;
import org.junit.jupiter.api.BeforeEach;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

class MonitoredDriverTest {
    private final RecordingSink sink = new RecordingSink();
    private Connection connection;

    @BeforeEach
    void connect() throws SQLException {
        connection = new MonitoredDriver(sink).connect("jdbc:am:h2:mem:shop;MODE=Regular", new Properties());
        connection.createStatement().execute("create table item (id int primary key, name varchar(20))");
        sink.reports.clear();
    }

    @AfterEach
    void close() throws SQLException {
        connection.close();
    }

    private interface Work {
        void on(Connection connection) throws SQLException;
    }

    private void check(Work work, String... sqls) throws SQLException {
        sink.reports.clear();
        work.on(connection);
        List<String> expected = new ArrayList<>();
        for (String sql : sqls) {
            expected.add("begin " + sql + " @h2:mem:shop");
            expected.add("end " + sql + " @h2:mem:shop");
        }
        assertEquals(expected, sink.reports);
    }

    @Test
    void reportsEachExecutionWithItsText() throws SQLException {
        check(c -> assertFalse(c.createStatement().execute("insert into item values (1, 'pen')")),
                "insert into item values (1, 'pen')");
        check(c -> assertEquals(1, c.createStatement().executeUpdate("update item set name = 'nib'")),
                "update item set name = 'nib'");
        check(c -> assertEquals(1, c.createStatement().executeLargeUpdate("update item set name = 'cap'",
                Statement.RETURN_GENERATED_KEYS)), "update item set name = 'cap'");
        check(c -> {
            PreparedStatement prepared = c.prepareStatement("select name from item where id = ?");
            for (int i = 0; i < 2; i++) {
                prepared.setInt(1, 1);
                ResultSet rows = prepared.executeQuery();
                assertTrue(rows.next());
                assertEquals("cap", rows.getString(1));
            }
        }, "select name from item where id = ?", "select name from item where id = ?");
        check(c -> {
            CallableStatement call = c.prepareCall("call 1 + 1");
            assertTrue(call.execute());
        }, "call 1 + 1");
        check(c -> {
            c.setAutoCommit(false);
            c.prepareStatement("select 1").close();
            c.rollback();
            c.setAutoCommit(true);
        });
    }

    @Test
    void reportsABatchOnceUnderItsFirstText() throws SQLException {
        check(c -> {
            Statement batch = c.createStatement();
            batch.addBatch("insert into item values (2, 'ink')");
            batch.addBatch("insert into item values (3, 'pad')");
            assertEquals(2, batch.executeBatch().length);
            batch.addBatch("delete from item where id = 9");
            batch.clearBatch();
            batch.addBatch("delete from item where id = 2");
            assertEquals(1, batch.executeLargeBatch().length);
            assertEquals(0, batch.executeBatch().length);
        }, "insert into item values (2, 'ink')", "delete from item where id = 2", "null");
        check(c -> {
            PreparedStatement batch = c.prepareStatement("insert into item values (?, 'x')");
            for (int id = 10; id < 13; id++) {
                batch.setInt(1, id);
                batch.addBatch();
            }
            assertEquals(3, batch.executeBatch().length);
        }, "insert into item values (?, 'x')");
    }

    @Test
    void theDriversOwnExceptionsComeThrough() throws SQLException {
        check(c -> assertEquals("42S02", assertThrows(JdbcSQLSyntaxErrorException.class,
                () -> c.createStatement().executeQuery("select * from nowhere")).getSQLState()),
                "select * from nowhere");
        check(c -> {
            Statement batch = c.createStatement();
            batch.addBatch("insert into item values (4, 'a'), (4, 'b')");
            assertThrows(BatchUpdateException.class, batch::executeBatch);
        }, "insert into item values (4, 'a'), (4, 'b')");
        check(c -> {
            assertThrows(JdbcSQLSyntaxErrorException.class, () -> c.prepareStatement("no sql"));
            assertThrows(SQLException.class, () -> c.unwrap(List.class));
            Statement closed = c.createStatement();
            closed.close();
            assertThrows(SQLException.class, closed::getResultSet);
        });
    }

    @Test
    void wrappersKnowEachOtherAndWhatIsBehind() throws SQLException {
        Statement statement = connection.prepareStatement("select 1");
        assertSame(connection, statement.getConnection());
        assertSame(connection, connection.unwrap(Connection.class));
        JdbcConnection real = connection.unwrap(JdbcConnection.class);
        assertInstanceOf(JdbcStatement.class, statement.unwrap(JdbcStatement.class));
        assertTrue(connection.isWrapperFor(JdbcConnection.class) && connection.isWrapperFor(Connection.class));
        assertFalse(connection.isWrapperFor(List.class));
        assertEquals(connection, Monitor.watch(real, sink, "other"));
        assertNotEquals(connection, statement);
    }

    @Test
    void aFailingCollectorIsNotTheApplicationsConcern() throws SQLException {
        sink.failing = true;
        assertTrue(connection.createStatement().executeQuery("select 1").next());
    }

    @Test
    void withoutTheAgentTheRealConnectionIsHandedOut() throws SQLException {
        try (Connection plain = DriverManager.getConnection("jdbc:am:h2:mem:")) {
            assertInstanceOf(JdbcConnection.class, plain);
        }
        assertNull(new MonitoredDriver().connect("jdbc:h2:mem:", new Properties()));
        assertThrows(SQLException.class, () -> DriverManager.getConnection("jdbc:am:nosuch:thing"));
        assertThrows(SQLException.class, () -> DriverManager.getConnection("jdbc:am:h2:mem:nosuch;IFEXISTS=TRUE"));
    }

    @ParameterizedTest
    @CsvSource({
        "jdbc:h2:mem:shop;DB_CLOSE_DELAY=-1;USER=sa;PASSWORD=x, h2:mem:shop",
        "jdbc:postgresql://db.host:5432/shop?user=u&password=p@q, postgresql://db.host:5432/shop",
        "jdbc:mysql://user:p@ss@host/db, mysql://host/db",
        "jdbc:oracle:thin:scott/ti:ger@//host:1521/svc, oracle:thin://host:1521/svc",
        "jdbc:sqlserver://host:1433;databaseName=shop, sqlserver://host:1433",
        "jdbc:, ''",
    })
    void namesADatabaseWithoutItsSecrets(String url, String name) {
        assertEquals(name, DataSourceName.of(url));
    }

    private static final class RecordingSink implements SqlSink {
        final List<String> reports = new ArrayList<>();
        boolean failing;

        @Override
        public void begin(String sql, String dataSource) {
            note("begin " + sql + " @" + dataSource);
        }

        @Override
        public void end(String sql, String dataSource) {
            note("end " + sql + " @" + dataSource);
        }

        private void note(String report) {
            if (failing) {
                throw new UnsatisfiedLinkError("gone");
            }
            reports.add(report);
        }
    }
}
