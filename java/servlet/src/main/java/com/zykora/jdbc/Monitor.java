package com.zykora.jdbc;

import java.lang.reflect.InvocationHandler;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Proxy;
import java.sql.Connection;

/**
 * Stands in front of one connection or statement of a real driver. Results and exceptions are the driver's own;
 * what executes is reported around the call. Result sets and metadata are the driver's, and so are the objects
 * that are reached through those. As safe for threads as the object behind it.
 */
final class Monitor implements InvocationHandler {
    private final Object target;
    private final SqlSink sink;
    private final String dataSource;
    /** For a statement the watched connection that made it, else null. */
    private final Object connection;
    /** The text of a prepared statement, else null. */
    private final String preparedSql;
    /** The first text of a batch under way; the others are not kept, however many there are. */
    private String batchSql;

    private Monitor(Object target, SqlSink sink, String dataSource, Object connection, String preparedSql) {
        this.target = target;
        this.sink = sink;
        this.dataSource = dataSource;
        this.connection = connection;
        this.preparedSql = preparedSql;
    }

    static Connection watch(Connection connection, SqlSink sink, String dataSource) {
        return (Connection) new Monitor(connection, sink, dataSource, null, null).as(Connection.class);
    }

    private Object as(Class<?> type) {
        return Proxy.newProxyInstance(Monitor.class.getClassLoader(), new Class<?>[] {type}, this);
    }

    @Override
    public Object invoke(Object proxy, Method method, Object[] args) throws Throwable {
        switch (JdbcCall.of(method)) {
            case EXECUTE:
                return execute(method, args);
            case MAKE_STATEMENT:
                Object made = pass(method, args);
                return new Monitor(made, sink, dataSource, proxy, firstText(args)).as(method.getReturnType());
            case COLLECT_BATCH:
                return collectBatch(method, args);
            case CLEAR_BATCH:
                batchSql = null;
                return pass(method, args);
            case GET_CONNECTION:
                return connection;
            case UNWRAP:
                return unwrap(proxy, method, args);
            case IS_WRAPPER_FOR:
                return isInstance(args[0], proxy) || isInstance(args[0], target) || (Boolean) pass(method, args);
            case EQUALS:
                return target.equals(behind(args[0]));
            default:
                return pass(method, args);
        }
    }

    private Object pass(Method method, Object[] args) throws Throwable {
        try {
            return method.invoke(target, args);
        } catch (InvocationTargetException e) {
            throw e.getTargetException();
        }
    }

    private Object execute(Method method, Object[] args) throws Throwable {
        String sql = sqlOf(args);
        if (!begin(sql)) {
            return pass(method, args);
        }
        try {
            return pass(method, args);
        } finally {
            end(sql);
        }
    }

    private String sqlOf(Object[] args) {
        String sql = firstText(args);
        if (sql == null && preparedSql == null) {
            sql = batchSql;
            batchSql = null;
        }
        return sql == null ? preparedSql : sql;
    }

    private static String firstText(Object[] args) {
        return args != null && args.length > 0 && args[0] instanceof String ? (String) args[0] : null;
    }

    private Object collectBatch(Method method, Object[] args) throws Throwable {
        Object result = pass(method, args);
        if (batchSql == null) {
            batchSql = firstText(args);
        }
        return result;
    }

    private Object unwrap(Object proxy, Method method, Object[] args) throws Throwable {
        if (isInstance(args[0], proxy)) {
            return proxy;
        }
        return isInstance(args[0], target) ? target : pass(method, args);
    }

    private static boolean isInstance(Object type, Object object) {
        return type != null && ((Class<?>) type).isInstance(object);
    }

    /** The driver's object behind a watched one; any other object itself. */
    private static Object behind(Object object) {
        if (object == null || !Proxy.isProxyClass(object.getClass())) {
            return object;
        }
        InvocationHandler handler = Proxy.getInvocationHandler(object);
        return handler instanceof Monitor ? ((Monitor) handler).target : object;
    }

    private boolean begin(String sql) {
        try {
            sink.begin(sql, dataSource);
            return true;
        } catch (Throwable unreported) {
            return false;
        }
    }

    private void end(String sql) {
        try {
            sink.end(sql, dataSource);
        } catch (Throwable unreported) {
            // The statement's outcome is the application's; an end less is all there is to it.
        }
    }
}
