package amtest.host;

/** Bootstrap classes of several kinds, each with what the native half looks for or without some of it. */
public final class Bootstraps {
    private Bootstraps() {
    }

    public static int calls;

    /** Has the natives, but nothing to start or to stop. */
    public static class Mute {
        public static native void defineNativeMethodsForClassNative(Class<?> type, String name);
        public static native int getCurrentProcessIdNative();
        public static native boolean isProcessAliveNative(int processId);
        public static native String getEnvNative(String name);
        public static native String[] getJavaCommandLineArgs();
        public static native long getCurrentThreadCPUTime();
        public static native int setFileReadWriteNative(String file);
    }

    /** Does what it should. */
    public static final class Good extends Mute {
        public static void staticInit() {
            calls++;
        }

        public static void disable() {
            calls += 10;
        }
    }

    /** Says that the collector must stay off, and cannot be switched off either. */
    public static final class Refusing extends Mute {
        public static void staticInit() {
            calls++;
            throw new IllegalStateException("staticInit of a test");
        }

        public static void disable() {
            throw new IllegalStateException("disable of a test");
        }
    }

    /** Has no natives to register. */
    public static final class WithoutNatives {
        public static void staticInit() {
            calls++;
        }
    }
}
