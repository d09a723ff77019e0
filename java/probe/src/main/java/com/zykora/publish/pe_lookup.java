package com.zykora.publish;

import com.qel.morvex.norak.toolkit.ai.bcm.bootstrap.PropertyManager;
import com.zykora.probe.support.OperatorNotes;
import com.zykora.probe.support.ServerSettings;
import java.util.Map;

/**
 * Tells the native half where the Publish Server is. The native half calls {@link #initialize} before it
 * connects, one thread at a time, and then reads the three fields by name. Each call looks again, so an address
 * that was changed in the properties files is used from the next connection on.
 *
 * <p>Keys, each a system property or, if that is absent, a line of the {@code datacollector*.properties}:
 * {@code publish.server.host} and {@code publish.server.port} (1 to 65535), both required, and
 * {@code publish.server.sendbuffer} (bytes, positive, 65536 if absent).
 */
public final class pe_lookup {
    private static final String HOST_KEY = "publish.server.host";
    private static final String PORT_KEY = "publish.server.port";
    private static final String BUFFER_KEY = "publish.server.sendbuffer";
    private static final int DEFAULT_SEND_BUFFER = 65536;
    private static final int NONE = -1;

    public static String hostName_;
    public static int port_;
    public static int sendBuffSize_;

    private pe_lookup() {
    }

    /** 1 if the address is known and the fields are set; 0, with the fields as they were, if not. */
    public static int initialize() {
        try {
            return lookUp(PropertyManager.collectorProperties()) ? 1 : 0;
        } catch (RuntimeException e) {
            return 0;
        }
    }

    private static boolean lookUp(Map<String, String> files) {
        String host = value(HOST_KEY, files);
        int port = number(PORT_KEY, files, 65535);
        if (host == null || port == NONE) {
            return false;
        }
        int buffer = number(BUFFER_KEY, files, Integer.MAX_VALUE);
        hostName_ = host;
        port_ = port;
        sendBuffSize_ = buffer == NONE ? DEFAULT_SEND_BUFFER : buffer;
        return true;
    }

    private static String value(String key, Map<String, String> files) {
        String value = ServerSettings.system(key);
        if (value == null) {
            value = files.get(key);
        }
        return value == null || value.trim().isEmpty() ? null : value.trim();
    }

    private static int number(String key, Map<String, String> files, int max) {
        String value = value(key, files);
        if (value == null) {
            return NONE;
        }
        try {
            int number = Integer.parseInt(value);
            if (number >= 1 && number <= max) {
                return number;
            }
        } catch (NumberFormatException notANumber) {
            // Told below, as a number out of range is.
        }
        OperatorNotes.once(key + "=" + value + " is not a number from 1 to " + max);
        return NONE;
    }
}
