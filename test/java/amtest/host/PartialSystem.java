package amtest.host;

/** Descriptions of a server that lack something: each class has one field more than the one it extends. */
public final class PartialSystem {
    private PartialSystem() {
    }

    /** Has nothing. */
    public static class None {
    }

    public static class Home extends None {
        public static String zykoraHome = "home";
    }

    public static class Node extends Home {
        public static String adminServerName = "node";
    }

    public static class Server extends Node {
        public static String appServerName = "server";
    }

    public static class HashSize extends Server {
        public static int methodHashSize = 11;
    }

    public static class Frequency extends HashSize {
        public static int publishFrequency = 12;
    }

    public static class PacketSize extends Frequency {
        public static int eventPacketSize = 13;
    }

    public static class QueueLimit extends PacketSize {
        public static int eventQueueSizeLimit = 14;
    }

    public static class Retry extends QueueLimit {
        public static long psRetryFrequency = 15_000_000_000L;
    }

    public static class Wakeup extends Retry {
        public static int wakeupQueueLength = 16;
    }

    public static class AgentId extends Wakeup {
        public static String commandAgentID = "agent";
    }

    public static class Port extends AgentId {
        public static int adminServerPort = 17;
    }

    public static class JvmVersion extends Port {
        public static String jvmVersion = "99";
    }

    public static class ProcessId extends JvmVersion {
        public static int processId;
    }

    public static class Level extends ProcessId {
        public static int probeLevel;
    }

    /** Lacks nothing that the native half insists on. */
    public static class Whole extends Level {
        public static String contextFileName;
        public static String probeStdout = "out";
        public static Class<?> object = Object.class;
        public static Class<?> clazz = Class.class;
        public static Class<?> string = null;

        public static String getAppServerProductVersion() {
            return "7.1.2";
        }
    }

    public static class NullVersion extends Whole {
        public static String getAppServerProductVersion() {
            return null;
        }
    }

    public static class ThrowingVersion extends Whole {
        public static String getAppServerProductVersion() {
            throw new IllegalStateException("getAppServerProductVersion of a test");
        }
    }

    /** A server name that is long. */
    public static class LongName {
        public static String getAppServerName() {
            return "a-server-with-a-long-name";
        }
    }

    public static class NullName {
        public static String getAppServerName() {
            return null;
        }
    }

    public static class ThrowingName {
        public static String getAppServerName() {
            throw new IllegalStateException("getAppServerName of a test");
        }
    }
}
