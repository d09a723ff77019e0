package com.zykora.probe.support;

import com.qel.morvex.norak.toolkit.ai.bcm.bootstrap.BcmBootstrap;
import com.qel.morvex.norak.toolkit.ai.osutils.OsUtils;

/**
 * Where this server lives and what it is called. A name is looked for where the native half looks for it: the
 * system property, a word {@code name=value} or {@code -Dname=value} on the command line, the process
 * environment; the first that is not empty counts. Nothing is cached, no operation throws. Safe for all threads.
 */
public final class ServerSettings {
    private static final String[] NO_WORDS = new String[0];

    private ServerSettings() {
    }

    /** The agent's home directory, or null if nobody named it. */
    public static String home() {
        return find("am.home");
    }

    /** The product home below which runtime directories stand, or null. */
    public static String norakHome() {
        return systemOrCommandLine("norak61.home");
    }

    /** The platform word of the runtime directory's name, or null. */
    public static String platform() {
        return systemOrCommandLine("appserver.platform");
    }

    /** The node name, never null: "defaultnode" if nobody named it. */
    public static String nodeName() {
        return or(find("am.nodename"), "defaultnode");
    }

    /** The server's name, never null: "appserver" if nobody named it. */
    public static String serverName() {
        return or(find("am.appserver"), "appserver");
    }

    /** The profile name, never null: empty if there is none. On the command line it is am.profilename. */
    public static String profileName() {
        String value = or(system("AM_PROFILENAME"), commandLine("am.profilename="));
        return or(value, or(environment("AM_PROFILENAME"), ""));
    }

    /** The product version of the server, "major.minor.fix"; "0.0.0" if nobody named it. */
    public static String serverVersion() {
        return or(system("appserver.version"), "0.0.0");
    }

    /** A system property's value, or null if it is absent, empty or may not be read. */
    public static String system(String name) {
        try {
            return or(System.getProperty(name), null);
        } catch (SecurityException hidden) {
            return null;
        }
    }

    private static String find(String name) {
        String value = systemOrCommandLine(name);
        return value != null ? value : environment(name);
    }

    private static String systemOrCommandLine(String name) {
        String value = system(name);
        return value != null ? value : commandLine(name + "=");
    }

    private static String commandLine(String prefix) {
        for (String word : commandLineWords()) {
            String text = word.startsWith("-D") ? word.substring(2) : word;
            if (text.startsWith(prefix) && text.length() > prefix.length()) {
                return text.substring(prefix.length());
            }
        }
        return null;
    }

    /** Without the native half there is no command line to search. */
    private static String[] commandLineWords() {
        try {
            String[] words = OsUtils.getArgumentVectorNative();
            return words == null ? NO_WORDS : words;
        } catch (LinkageError noAgent) {
            return NO_WORDS;
        }
    }

    /** The native view comes first: the JVM's own copy lacks what the agent added from its environment file. */
    private static String environment(String name) {
        try {
            return or(BcmBootstrap.getEnvNative(name), null);
        } catch (LinkageError notRegistered) {
            return jvmEnvironment(name);
        }
    }

    private static String jvmEnvironment(String name) {
        try {
            return or(System.getenv(name), null);
        } catch (SecurityException hidden) {
            return null;
        }
    }

    private static String or(String value, String otherwise) {
        return value == null || value.isEmpty() ? otherwise : value;
    }
}
