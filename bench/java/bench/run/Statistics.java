package bench.run;

import java.util.Set;
import java.util.regex.Matcher;
import java.util.regex.Pattern;

/** What a Publish Server has counted. */
final class Statistics {
    /** Records of the natives that the load programs call: begin, end and failure of pages, components, statements. */
    private static final Set<String> EVENT_TYPES = Set.of("4", "5", "50", "6", "7", "9", "10", "33", "34");
    private static final Pattern TYPES = Pattern.compile("\"types\": ?\\{([^}]*)\\}");
    private static final Pattern TYPE = Pattern.compile("\"(\\d+)\": ?(\\d+)");

    private final String json;

    Statistics(String json) {
        this.json = json;
    }

    long number(String key) {
        Matcher value = Pattern.compile("\"" + key + "\": ?(\\d+)").matcher(json);
        return value.find() ? Long.parseLong(value.group(1)) : 0;
    }

    long events() {
        Matcher types = TYPES.matcher(json);
        long sum = 0;
        if (types.find()) {
            for (Matcher type = TYPE.matcher(types.group(1)); type.find();) {
                sum += EVENT_TYPES.contains(type.group(1)) ? Long.parseLong(type.group(2)) : 0;
            }
        }
        return sum;
    }

    /** Events that drop records account for. */
    long dropped() {
        return number("sum");
    }

    /** Drop records without a count: they mark a gap. */
    long markers() {
        return number("markers");
    }
}
