package com.zykora.probe;

import com.zykora.probe.support.ServerSettings;
import java.util.Map;

/**
 * The server as Java knows it. The native half reads and writes the fields by name while
 * {@link #initializeProbe} runs, so names and types are fixed and {@link #describeServer} comes first.
 */
public final class ProbeSystem {
    // Read by the native half. It replaces a 0 by its own default; a null string ends its reading.
    public static String zykoraHome;
    public static String adminServerName;
    public static String appServerName;
    public static int methodHashSize;
    /** Milliseconds between packets. */
    public static int publishFrequency;
    /** Kilobytes of a packet. */
    public static int eventPacketSize;
    /** Events in the queue of one thread. */
    public static int eventQueueSizeLimit;
    /** Milliseconds between attempts to connect. */
    public static long psRetryFrequency;
    public static int wakeupQueueLength;
    public static String probeStdout;
    /** Identifies this server to the Publish Server. */
    public static String commandAgentID;
    public static int adminServerPort;
    public static String jvmVersion;
    public static Class<?> object = Object.class;
    public static Class<?> clazz = Class.class;
    public static Class<?> string = String.class;

    // Written by the native half.
    public static int processId;
    public static int probeLevel;
    public static String contextFileName;

    private static final int FIRST_MAJOR_WITH_PROFILES = 6;

    private ProbeSystem() {
    }

    /** Fills the fields that the native half reads, {@code files} being the collector's properties files. */
    static void describeServer(Map<String, String> files) {
        String home = ServerSettings.home();
        zykoraHome = home == null ? "/zykora" : home;
        adminServerName = ServerSettings.nodeName();
        appServerName = ServerSettings.serverName();
        methodHashSize = 0;
        publishFrequency = number(files, "internal.probe.publishing.frequency", 0);
        eventPacketSize = number(files, "internal.probe.event.packet.size", 0);
        eventQueueSizeLimit = number(files, "internal.probe.event.queue.size.limit", 0);
        psRetryFrequency = number(files, "networkagent.ps.reconnect.frequency", 0);
        wakeupQueueLength = 0;
        probeStdout = "";
        commandAgentID = adminServerName + "." + appServerName;
        adminServerPort = number(files, "am.adminserver.port", 0);
        jvmVersion = System.getProperty("java.version");
    }

    /**
     * A whole number among the collector's settings: from the properties files, else from the system property
     * of the same name, else {@code otherwise}, which also replaces what is no number.
     */
    static int number(Map<String, String> files, String key, int otherwise) {
        String value = files.get(key);
        if (value == null) {
            value = ServerSettings.system(key);
        }
        try {
            return value == null ? otherwise : Integer.parseInt(value.trim());
        } catch (NumberFormatException notANumber) {
            return otherwise;
        }
    }

    /** The server's full name on the wire: with the profile in parentheses from major version 6 on. */
    public static String getAppServerName() {
        String name = ServerSettings.serverName();
        String profile = ServerSettings.profileName();
        boolean profiled = !profile.isEmpty() && major(getAppServerProductVersion()) >= FIRST_MAJOR_WITH_PROFILES;
        return profiled ? name + "(" + profile + ")" : name;
    }

    /** The digits that a version begins with; 0 if there are none. Only the last nine count. */
    private static int major(String version) {
        int number = 0;
        for (int i = 0; i < version.length() && version.charAt(i) >= '0' && version.charAt(i) <= '9'; i++) {
            number = (number % 100000000) * 10 + version.charAt(i) - '0';
        }
        return number;
    }

    /** "major.minor.fix" of the server product, from the system property appserver.version. */
    public static String getAppServerProductVersion() {
        return ServerSettings.serverVersion();
    }

    /** Sets the priority of the event agents' threads; called by the native half too. Clamped to 1..10. */
    public static void setEAPoolPriority(int priority) {
        ProbeService.LIFE_CYCLE.eventPool().setPriority(priority);
    }

    /** Sets the priority of the network agents' threads; called by the native half too. Clamped to 1..10. */
    public static void setNAPoolPriority(int priority) {
        ProbeService.LIFE_CYCLE.networkPool().setPriority(priority);
    }

    /** Hands the fields over; false if one was missing, what came before it being taken. */
    public static native boolean initializeProbe();

    /** Ends the whole process at once with exit status 12. */
    public static native void stopNative();

    public static native int getProcessId();

    /** Always 0: the id file is not locked on this platform. */
    public static native int nativeLockIdFile(String server);

    /** Always 0. */
    public static native int nativeUnlockIdFile(String server);
}
