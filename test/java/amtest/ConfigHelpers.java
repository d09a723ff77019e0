package amtest;

/** Helper classes of the Java half that misbehave, each in its own way; see PropertyMgr_jvm_test. */
public final class ConfigHelpers {
    private ConfigHelpers() {
    }

    /** Has none of the methods that are looked for. */
    public static final class NoMethods {
    }

    /** Throws wherever it is called. */
    public static final class Throwing {
        public static String[] getEnvVariables(String file) {
            throw new IllegalStateException("getEnvVariables of a test");
        }

        public static boolean buildRuntime(String directory) {
            throw new IllegalStateException("buildRuntime of a test");
        }

        public static String getRuntimeDirName() {
            throw new IllegalStateException("getRuntimeDirName of a test");
        }
    }

    /** Answers the first call with nothing and throws afterwards. */
    public static final class ThrowingLater {
        public static String[] getEnvVariables(String file) {
            return null;
        }

        public static String[] defineSysProps(String directory) {
            throw new IllegalStateException("defineSysProps of a test");
        }

        public static String[] defineProps(String directory, String mask, String managerName) {
            throw new IllegalStateException("defineProps of a test");
        }
    }

    /** Answers with lines of every kind, and shows in them what it was given. */
    public static final class OddLines {
        public static String[] getEnvVariables(String file) {
            return new String[] {null, "", "# AM_TEST_ODD=comment", "=x", "AM_TEST_ODD_NULL=", "AM_TEST_ODD= a =b",
                "AM_TEST_FILE=" + file};
        }

        public static String[] defineSysProps(String directory) {
            return new String[] {"sys.directory=" + directory, "sys.null=", "sys.word", null, "both=sys"};
        }

        public static String[] defineProps(String directory, String mask, String managerName) {
            String[] lines = new String[3000];
            for (int i = 0; i < lines.length; i++) {
                lines[i] = "line." + i + "=" + i;
            }
            lines[0] = "args=" + directory + "|" + mask + "|" + managerName;
            lines[1] = "both=file";
            lines[2] = "refused=";
            return lines;
        }
    }

    /** A builder that names the directory it was given. */
    public static final class AgreeingBuilder {
        private static String name;

        public static boolean buildRuntime(String directory) {
            name = directory;
            return true;
        }

        public static String getRuntimeDirName() {
            return name;
        }
    }

    /** A builder that builds but names nothing. */
    public static final class SilentBuilder {
        public static boolean buildRuntime(String directory) {
            return true;
        }

        public static String getRuntimeDirName() {
            return null;
        }
    }
}
