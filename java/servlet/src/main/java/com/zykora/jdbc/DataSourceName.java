package com.zykora.jdbc;

import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** The name under which a database's statements are reported. */
final class DataSourceName {
    private static final Pattern PARAMETERS = Pattern.compile("[;?].*", Pattern.DOTALL);
    private static final Pattern DRIVER_WORDS = Pattern.compile("(?:\\w+:)+(?://)?");

    private DataSourceName() {
    }

    /** The URL without "jdbc:", credentials and parameters: "h2:mem:shop" for "jdbc:h2:mem:shop;MODE=Strict". */
    static String of(String url) {
        String name = PARAMETERS.matcher(url).replaceFirst("");
        int at = name.lastIndexOf('@');
        if (at >= 0) {
            Matcher driver = DRIVER_WORDS.matcher(name);
            name = (driver.lookingAt() ? driver.group() : "") + name.substring(at + 1);
        }
        return name.startsWith("jdbc:") ? name.substring("jdbc:".length()) : name;
    }
}
