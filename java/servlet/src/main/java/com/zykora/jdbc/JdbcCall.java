package com.zykora.jdbc;

import java.lang.reflect.Method;
import java.sql.CallableStatement;
import java.sql.Connection;
import java.sql.PreparedStatement;
import java.sql.Statement;
import java.util.HashMap;
import java.util.Map;

/** What a JDBC method means to the monitor. */
enum JdbcCall {
    /** Nothing: the call goes straight through. */
    PASS,
    /** Makes a statement, which is to be watched too. */
    MAKE_STATEMENT,
    /** Runs SQL: its first argument, or what was prepared or collected before. */
    EXECUTE,
    COLLECT_BATCH,
    CLEAR_BATCH,
    /** Asks a statement for its connection, which must be the watched one. */
    GET_CONNECTION,
    UNWRAP,
    IS_WRAPPER_FOR,
    EQUALS;

    /** Filled once and only read afterwards: the one look-up that every call pays for. */
    private static final Map<Method, JdbcCall> CALLS = new HashMap<Method, JdbcCall>();

    static {
        Class<?>[] watched = {
            Object.class, Connection.class, Statement.class, PreparedStatement.class, CallableStatement.class
        };
        for (Class<?> type : watched) {
            for (Method method : type.getMethods()) {
                CALLS.put(method, byName(method));
            }
        }
    }

    static JdbcCall of(Method method) {
        JdbcCall call = CALLS.get(method);
        return call == null ? PASS : call;
    }

    private static JdbcCall byName(Method method) {
        if (method.getName().startsWith("execute")) {
            return EXECUTE;
        }
        switch (method.getName()) {
            case "createStatement":
            case "prepareStatement":
            case "prepareCall":
                return MAKE_STATEMENT;
            case "addBatch":
                return method.getParameterCount() == 1 ? COLLECT_BATCH : PASS;
            case "clearBatch":
                return CLEAR_BATCH;
            case "getConnection":
                return GET_CONNECTION;
            case "unwrap":
                return UNWRAP;
            case "isWrapperFor":
                return IS_WRAPPER_FOR;
            case "equals":
                return EQUALS;
            default:
                return PASS;
        }
    }
}
