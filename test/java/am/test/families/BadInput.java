package am.test.families;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.qel.morvex.norak.dc.eventagent.PortalNativeEventAgentImpl;
import com.zykora.command.MethodLevelModule;
import com.zykora.jdbc.ZykoraStatement;
import com.zykora.probe.l3trace.BcmRuntime;
import java.lang.reflect.InvocationTargetException;
import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import oracle.jdbc.driver.OracleStatement;

/** Calls every native that application code can reach with arguments that no careful caller would pass. */
public final class BadInput {
    private static final String LONG_TEXT = "\u00e9\u20ac\ud83d\ude00x".repeat(2_000_000);

    private BadInput() {
    }

    /** What was thrown, a line each; empty if all is well. */
    public static String callAll() {
        StringBuilder thrown = new StringBuilder();
        for (Kind kind : Kind.values()) {
            callAll(NativeEventAgentImpl.class, null, kind, thrown);
            callAll(PortalNativeEventAgentImpl.class, null, kind, thrown);
            callAll(MethodLevelModule.class, null, kind, thrown);
            callAll(BcmRuntime.class, null, kind, thrown);
            callAll(ZykoraStatement.class, new ZykoraStatement(), kind, thrown);
            callAll(OracleStatement.class, new OracleStatement(), kind, thrown);
        }
        return thrown.toString();
    }

    private static void callAll(Class<?> type, Object target, Kind kind, StringBuilder thrown) {
        for (Method method : type.getDeclaredMethods()) {
            if (Modifier.isNative(method.getModifiers()) && !isOfThePool(method)) {
                call(method, target, kind, thrown);
            }
        }
    }

    private static boolean isOfThePool(Method method) {
        return method.getName().matches("(start|stop)ThreadNative");
    }

    private static void call(Method method, Object target, Kind kind, StringBuilder thrown) {
        Class<?>[] types = method.getParameterTypes();
        Object[] arguments = new Object[types.length];
        for (int i = 0; i < types.length; i++) {
            arguments[i] = kind.of(types[i]);
        }
        try {
            method.invoke(target, arguments);
        } catch (InvocationTargetException | IllegalAccessException e) {
            thrown.append(kind).append(' ').append(method.getName()).append(": ").append(e.getCause()).append('\n');
        }
    }

    private enum Kind {
        NOTHING(null, 0, null),
        EMPTY("", -1, 0),
        HUGE(LONG_TEXT, Integer.MAX_VALUE, 3),
        BROKEN("\ud800\u0000\udfff", Integer.MIN_VALUE, 1);

        private final String text;
        private final int number;
        private final Integer arrayLength;

        Kind(String text, int number, Integer arrayLength) {
            this.text = text;
            this.number = number;
            this.arrayLength = arrayLength;
        }

        private Object of(Class<?> type) {
            if (type == String.class) {
                return text;
            } else if (type == int.class) {
                return number;
            } else if (type == long.class) {
                return (long) number;
            } else if (type == byte.class) {
                return (byte) (number ^ 3);
            } else if (type == boolean.class) {
                return this != NOTHING;
            } else if (type == Object.class) {
                return text;
            } else if (type.isArray()) {
                return arrayLength == null ? null : array(type.getComponentType());
            }
            throw new AssertionError("no argument of " + type);
        }

        private Object array(Class<?> element) {
            Object array = java.lang.reflect.Array.newInstance(element, arrayLength);
            if (element == Object.class && arrayLength > 0) {
                ((Object[]) array)[0] = this == HUGE ? new Object[0] : text;
            }
            return array;
        }
    }
}
