package bench.run;

import java.util.HashMap;
import java.util.List;
import java.util.Map;

/** `--name value` pairs of the command line, each of which replaces a default. */
final class Options {
    private final Map<String, Integer> values;

    Options(Map<String, Integer> defaults, List<String> arguments) {
        values = new HashMap<>(defaults);
        for (int i = 0; i < arguments.size(); i += 2) {
            String name = arguments.get(i).replaceFirst("^--", "");
            if (!defaults.containsKey(name) || i + 1 == arguments.size()) {
                throw new IllegalArgumentException("options are " + defaults);
            }
            values.put(name, Integer.valueOf(arguments.get(i + 1)));
        }
    }

    int get(String name) {
        return values.get(name);
    }
}
