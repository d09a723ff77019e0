package amtest;

import java.io.InputStream;
import java.util.List;
import java.util.function.Supplier;
import java.util.stream.IntStream;

/** Loads classes for an instrumenter that misbehaves as their names say, and tells what became of each. */
public final class Hooked {
    private Hooked() {
    }

    /** Each answers with a text of its own class file, which an instrumenter may change. */
    public static final class Kept implements Supplier<String> {
        @Override
        public String get() {
            return "original";
        }
    }

    /** Argument: how many classes each of eight threads loads. */
    public static void main(String[] args) throws Exception {
        byte[] bytes;
        try (InputStream file = Hooked.class.getResourceAsStream("Hooked$Kept.class")) {
            bytes = file.readAllBytes();
        }
        StringBuilder told = new StringBuilder("told");
        for (String loader : List.of("replaces", "throws", "empty", "rubbish", "loads", "keeps")) {
            told.append(' ').append(answer(loader, bytes));
        }
        List<Thread> threads = IntStream.range(0, 8).mapToObj(i -> new Thread(() -> {
            for (int n = 0; n < Integer.parseInt(args[0]); n++) {
                answer("keeps", bytes);
            }
        })).toList();
        threads.forEach(Thread::start);
        for (Thread thread : threads) {
            thread.join();
        }
        System.out.println(told);
    }

    /** By a loader of its own with that name, which the instrumenter sees. */
    private static String answer(String name, byte[] bytes) {
        class Loader extends ClassLoader {
            Loader() {
                super(name, Hooked.class.getClassLoader());
            }

            Class<?> define() {
                return defineClass("amtest.Hooked$Kept", bytes, 0, bytes.length);
            }
        }
        try {
            return (String) ((Supplier<?>) new Loader().define().getDeclaredConstructor().newInstance()).get();
        } catch (ReflectiveOperationException | LinkageError broken) {
            return broken.toString();
        }
    }
}
