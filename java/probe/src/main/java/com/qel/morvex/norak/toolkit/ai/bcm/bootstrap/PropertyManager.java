package com.qel.morvex.norak.toolkit.ai.bcm.bootstrap;

import com.qel.morvex.norak.toolkit.ai.runtimebuilder.RuntimeBuilder;
import com.zykora.probe.support.ConfigurationFile;
import com.zykora.probe.support.OperatorNotes;
import com.zykora.probe.support.ServerSettings;
import java.io.File;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.Comparator;
import java.util.HashMap;
import java.util.List;
import java.util.Map;

/**
 * Reads the properties files for the native half, which calls the three methods that return arrays by name.
 * A file is plain UTF-8 text: one {@code key=value} a line, blanks around key and value dropped, empty lines and
 * lines that begin with "#" skipped. There are no escapes and no continued lines: what stands after the first
 * "=" is the value. Nothing throws: what cannot be read counts as absent, after one line for the operator.
 */
public final class PropertyManager {
    private static final String COLLECTOR_FILES = "datacollector*.properties";

    private PropertyManager() {
    }

    /**
     * The lines of the environment file.
     *
     * @param file path of the file; null or empty means that there is none
     * @return {@code key=value} lines, or null if the file is absent or cannot be read
     */
    public static String[] getEnvVariables(String file) {
        List<String> lines = new ArrayList<String>();
        return isKnown(file) && addLines(new File(file), lines) ? toArray(lines) : null;
    }

    /**
     * The defaults that were given as system properties, for every key that the native half reads.
     *
     * @param directory the runtime directory, which holds no defaults and is not looked at
     * @return {@code key=value} lines, empty if no such system property is set
     */
    public static String[] defineSysProps(String directory) {
        List<String> lines = new ArrayList<String>();
        for (String key : PropertyIndex.KEYS) {
            String value = ServerSettings.system(key);
            if (value != null) {
                lines.add(key + "=" + value);
            }
        }
        return toArray(lines);
    }

    /**
     * The lines of all files of a directory that match a mask. Files come in the order of their names without
     * the extension, so that {@code datacollector.properties} precedes {@code datacollector_site.properties},
     * and the last line for a key is the one that counts.
     *
     * @param directory the runtime directory; null or empty means that there is none
     * @param mask a file name in which one "*" may stand for any characters
     * @param managerName the component that asks; all share the same files
     * @return {@code key=value} lines, or null if no file could be read
     */
    public static String[] defineProps(String directory, String mask, String managerName) {
        if (!isKnown(directory) || mask == null) {
            return null;
        }
        List<String> lines = new ArrayList<String>();
        boolean any = false;
        for (String name : matchingNames(directory, mask)) {
            any |= addLines(new File(directory, name), lines);
        }
        return any ? toArray(lines) : null;
    }

    /** The collector's own settings from the runtime directory, for readers on the Java side; never null. */
    public static Map<String, String> collectorProperties() {
        Map<String, String> settings = new HashMap<String, String>();
        String[] lines = defineProps(RuntimeBuilder.getRuntimeDirName(), COLLECTOR_FILES, "ZYK");
        for (int i = 0; lines != null && i < lines.length; i++) {
            int equals = lines[i].indexOf('=');
            settings.put(lines[i].substring(0, equals), lines[i].substring(equals + 1));
        }
        return settings;
    }

    private static String[] matchingNames(String directory, String mask) {
        int star = mask.indexOf('*');
        String head = star < 0 ? mask : mask.substring(0, star);
        String tail = star < 0 ? "" : mask.substring(star + 1);
        String[] all = new File(directory).list();
        List<String> names = new ArrayList<String>();
        for (int i = 0; all != null && i < all.length; i++) {
            boolean matches = star < 0
                    ? all[i].equals(mask)
                    : all[i].length() >= mask.length() - 1 && all[i].startsWith(head) && all[i].endsWith(tail);
            if (matches) {
                names.add(all[i]);
            }
        }
        String[] sorted = toArray(names);
        Arrays.sort(sorted, BY_BASE_NAME);
        return sorted;
    }

    private static final Comparator<String> BY_BASE_NAME = new Comparator<String>() {
        @Override
        public int compare(String a, String b) {
            int byBase = base(a).compareTo(base(b));
            return byBase != 0 ? byBase : a.compareTo(b);
        }

        private String base(String name) {
            int dot = name.lastIndexOf('.');
            return dot < 0 ? name : name.substring(0, dot);
        }
    };

    /** Adds the lines of a file; false, with nothing added, if it is absent or cannot be read. */
    private static boolean addLines(File file, List<String> lines) {
        if (!file.exists()) {
            return false;
        }
        try {
            lines.addAll(read(file));
            return true;
        } catch (IOException | SecurityException e) {
            OperatorNotes.once("Cannot read " + file + ", its settings are not used: " + e.getMessage());
            return false;
        }
    }

    private static List<String> read(File file) throws IOException {
        List<String> lines = new ArrayList<String>();
        for (String line : new String(ConfigurationFile.read(file), StandardCharsets.UTF_8).split("[\r\n]+")) {
            String setting = normalised(line);
            if (setting != null) {
                lines.add(setting);
            }
        }
        return lines;
    }

    /** {@code key=value} without blanks around either, or null for a line that sets nothing. */
    private static String normalised(String line) {
        String text = (line.startsWith("\uFEFF") ? line.substring(1) : line).trim();
        int equals = text.indexOf('=');
        if (equals < 1 || text.charAt(0) == '#') {
            return null;
        }
        return text.substring(0, equals).trim() + "=" + text.substring(equals + 1).trim();
    }

    /** An empty name would lead to the root of the file system. */
    private static boolean isKnown(String path) {
        return path != null && !path.isEmpty();
    }

    private static String[] toArray(List<String> lines) {
        return lines.toArray(new String[0]);
    }
}
