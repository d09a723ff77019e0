package demo.shop;

import java.lang.reflect.InvocationHandler;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Proxy;
import java.sql.Connection;
import java.sql.Driver;
import java.sql.DriverManager;
import java.sql.DriverPropertyInfo;
import java.sql.SQLException;
import java.sql.Statement;
import java.util.Properties;
import java.util.concurrent.atomic.AtomicInteger;
import java.util.logging.Logger;

/**
 * A JDBC driver for "jdbc:count:" + URL that counts, as a monitor would, every execution of a statement: the check
 * on what the shop says of itself. Found as a service.
 */
public final class CountingDriver implements Driver {
    static final AtomicInteger EXECUTED = new AtomicInteger();
    /** Most executions open at a time on one thread. */
    static final AtomicInteger DEEPEST = new AtomicInteger();

    private static final String PREFIX = "jdbc:count:";
    private static final ThreadLocal<Integer> DEPTH = ThreadLocal.withInitial(() -> 0);

    static {
        try {
            DriverManager.registerDriver(new CountingDriver());
        } catch (SQLException e) {
            throw new ExceptionInInitializerError(e);
        }
    }

    @Override
    public Connection connect(String url, Properties info) throws SQLException {
        return acceptsURL(url)
                ? watched(Connection.class, DriverManager.getConnection("jdbc:" + url.substring(PREFIX.length()), info))
                : null;
    }

    private static <T> T watched(Class<T> type, T real) {
        InvocationHandler handler = (proxy, method, values) -> {
            boolean executes = real instanceof Statement && method.getName().startsWith("execute");
            Object result = executes ? executed(real, method, values) : call(real, method, values);
            return result instanceof Statement ? watch(method.getReturnType(), result) : result;
        };
        return type.cast(Proxy.newProxyInstance(type.getClassLoader(), new Class<?>[] {type}, handler));
    }

    private static <T> T watch(Class<T> type, Object real) {
        return watched(type, type.cast(real));
    }

    private static Object executed(Object real, Method method, Object[] values) throws Throwable {
        EXECUTED.incrementAndGet();
        DEPTH.set(DEPTH.get() + 1);
        DEEPEST.accumulateAndGet(DEPTH.get(), Math::max);
        try {
            return call(real, method, values);
        } finally {
            DEPTH.set(DEPTH.get() - 1);
        }
    }

    private static Object call(Object real, Method method, Object[] values) throws Throwable {
        try {
            return method.invoke(real, values);
        } catch (InvocationTargetException e) {
            throw e.getCause();
        }
    }

    @Override
    public boolean acceptsURL(String url) {
        return url.startsWith(PREFIX);
    }

    @Override
    public DriverPropertyInfo[] getPropertyInfo(String url, Properties info) {
        return new DriverPropertyInfo[0];
    }

    @Override
    public int getMajorVersion() {
        return 1;
    }

    @Override
    public int getMinorVersion() {
        return 0;
    }

    @Override
    public boolean jdbcCompliant() {
        return false;
    }

    @Override
    public Logger getParentLogger() {
        return Logger.getGlobal();
    }
}
