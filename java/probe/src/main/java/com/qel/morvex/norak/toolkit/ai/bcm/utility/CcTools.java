package com.qel.morvex.norak.toolkit.ai.bcm.utility;

import com.zykora.probe.support.ServerSettings;
import java.nio.charset.Charset;

/** Small services that the native half calls by name. */
public final class CcTools {
    private static final byte[] NOTHING = new byte[0];

    private CcTools() {
    }

    /**
     * A system property as the operating system would spell it: in the encoding that this platform uses for
     * file names, so that a path survives the way to native code unchanged.
     *
     * @param name the property's name; null is as good as an unknown name
     * @return the bytes, not terminated; an empty array, never null, if the property has no value
     */
    public static byte[] getPropertyBytes(String name) {
        String value = name == null || name.isEmpty() ? null : ServerSettings.system(name);
        return value == null ? NOTHING : value.getBytes(platformCharset());
    }

    private static Charset platformCharset() {
        try {
            return Charset.forName(ServerSettings.system("sun.jnu.encoding"));
        } catch (IllegalArgumentException unknown) {
            return Charset.defaultCharset();
        }
    }
}
