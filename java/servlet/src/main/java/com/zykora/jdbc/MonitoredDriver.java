package com.zykora.jdbc;

import com.zykora.probe.app.AgentLink;
import java.sql.Connection;
import java.sql.Driver;
import java.sql.DriverManager;
import java.sql.DriverPropertyInfo;
import java.sql.SQLException;
import java.sql.SQLFeatureNotSupportedException;
import java.util.Properties;
import java.util.logging.Logger;

/**
 * Reports the statements of another driver: with {@code jdbc:am:} in place of {@code jdbc:} in its URL, the
 * real driver, which must be registered and visible from here, makes the connection and this one watches over
 * it. Without the agent the real connection is handed out as it is. Safe for all threads.
 */
public final class MonitoredDriver implements Driver {
    private static final String PREFIX = "jdbc:am:";

    static {
        try {
            DriverManager.registerDriver(new MonitoredDriver());
        } catch (SQLException unregistered) {
            // URLs with the prefix then meet "No suitable driver", as they do without this class.
        }
    }

    private final SqlSink sink;

    public MonitoredDriver() {
        this(AgentLink.isPresent() ? new SqlSink.Natives() : null);
    }

    /** @param sink null reports nothing */
    MonitoredDriver(SqlSink sink) {
        this.sink = sink;
    }

    @Override
    public boolean acceptsURL(String url) {
        return url != null && url.startsWith(PREFIX);
    }

    /** Null for a URL without the prefix; otherwise what the real driver gives, its exceptions included. */
    @Override
    public Connection connect(String url, Properties info) throws SQLException {
        if (!acceptsURL(url)) {
            return null;
        }
        String realUrl = realUrl(url);
        Connection connection = DriverManager.getDriver(realUrl).connect(realUrl, info);
        return sink == null || connection == null
                ? connection
                : Monitor.watch(connection, sink, DataSourceName.of(realUrl));
    }

    @Override
    public DriverPropertyInfo[] getPropertyInfo(String url, Properties info) throws SQLException {
        String realUrl = realUrl(url);
        return DriverManager.getDriver(realUrl).getPropertyInfo(realUrl, info);
    }

    private static String realUrl(String url) {
        return "jdbc:" + url.substring(PREFIX.length());
    }

    @Override
    public int getMajorVersion() {
        return 1;
    }

    @Override
    public int getMinorVersion() {
        return 0;
    }

    /** False: it depends on the real driver. */
    @Override
    public boolean jdbcCompliant() {
        return false;
    }

    @Override
    public Logger getParentLogger() throws SQLFeatureNotSupportedException {
        throw new SQLFeatureNotSupportedException("no logger is used");
    }
}
