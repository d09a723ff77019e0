package am.test.families;

import java.lang.reflect.Method;
import java.lang.reflect.Modifier;
import java.util.ArrayList;
import java.util.List;

/** The native methods of a class as the test binds them. */
public final class Natives {
    private Natives() {
    }

    /** For each native method three texts: its name, its signature, and the symbol that implements it. */
    public static String[] of(Class<?> type) {
        List<String> texts = new ArrayList<>();
        for (Method method : type.getDeclaredMethods()) {
            if (Modifier.isNative(method.getModifiers())) {
                texts.add(method.getName());
                texts.add(signature(method));
                texts.add("Java_" + type.getName().replace('.', '_') + "_" + method.getName());
            }
        }
        return texts.toArray(new String[0]);
    }

    private static String signature(Method method) {
        StringBuilder text = new StringBuilder("(");
        for (Class<?> parameter : method.getParameterTypes()) {
            text.append(parameter.descriptorString());
        }
        return text.append(')').append(method.getReturnType().descriptorString()).toString();
    }
}
