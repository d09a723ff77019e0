package demo.shop;

import java.sql.Connection;
import java.sql.DriverManager;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.concurrent.atomic.AtomicInteger;
import org.apache.tomcat.jdbc.pool.DataSource;
import org.apache.tomcat.jdbc.pool.PoolProperties;

/**
 * The shop's in-memory database and its connection pool. The schema is loaded through the plain URL and the pool
 * runs no statement of its own, so whoever watches the pool's URL sees the statements of requests only.
 */
final class Database implements AutoCloseable {
    private static final AtomicInteger COUNT = new AtomicInteger();

    /** Keeps the in-memory database alive while the pool holds no connection. */
    private final Connection keeper;
    private final DataSource pool;

    /** @param connections most connections at a time; a request takes up to two */
    Database(String jdbcPrefix, int connections) throws SQLException {
        String database = "h2:mem:shop" + COUNT.incrementAndGet() + ";LOCK_TIMEOUT=20000";
        keeper = DriverManager.getConnection("jdbc:" + database);
        try (Statement statement = keeper.createStatement()) {
            statement.execute("RUNSCRIPT FROM 'classpath:demo/shop/schema.sql'");
        }
        pool = new DataSource(poolProperties(jdbcPrefix + database, connections));
    }

    private static PoolProperties poolProperties(String url, int connections) throws SQLException {
        PoolProperties properties = new PoolProperties();
        properties.setUrl(url);
        properties.setDriverClassName(DriverManager.getDriver(url).getClass().getName());
        properties.setInitialSize(0);
        properties.setMinIdle(0);
        properties.setMaxActive(connections);
        properties.setMaxIdle(connections);
        properties.setJmxEnabled(false);
        return properties;
    }

    /** A session for the calling thread; the caller closes it. */
    Session open() throws SQLException {
        return new Session(pool);
    }

    @Override
    public void close() throws SQLException {
        pool.close(true);
        keeper.close();
    }
}
