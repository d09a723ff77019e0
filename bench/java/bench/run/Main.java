package bench.run;

import java.io.IOException;
import java.util.List;

/** The benchmarks by name. */
public final class Main {
    private Main() {
    }

    public static void main(String[] args) throws IOException, InterruptedException {
        List<String> options = List.of(args).subList(Math.min(1, args.length), args.length);
        if (!run(args.length > 0 ? args[0] : "", options)) {
            System.exit(1);
        }
    }

    /** False if a condition of the benchmark did not hold. */
    private static boolean run(String name, List<String> options) throws IOException, InterruptedException {
        Install install = Install.locate();
        switch (name) {
        case "pair" -> Pairs.parts(install, options);
        case "families" -> Pairs.families(install, options);
        case "startup" -> Startup.run(install, options);
        case "memory" -> Memory.run(install, options);
        case "pump" -> {
            return Pump.run(install, options);
        }
        case "keepup" -> {
            return KeepUp.run(install, options);
        }
        case "load" -> {
            return Load.run(install, options);
        }
        default -> {
            System.err.println("benchmarks are pair, families, pump, startup, memory, keepup, load");
            return false;
        }
        }
        return true;
    }
}
