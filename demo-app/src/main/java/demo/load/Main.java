package demo.load;

import java.io.IOException;
import java.io.PrintStream;
import java.nio.file.Files;

/**
 * The load driver's command line. Progress goes to standard error, one line of JSON with the result to standard
 * output and, with {@code --report}, into a file. Exit status: 0 when every answer was the expected one, 1 when
 * not, 2 for wrong options.
 */
public final class Main {
    private Main() {
    }

    public static void main(String[] args) throws IOException, InterruptedException {
        System.exit(run(System.out, System.err, args));
    }

    /** The whole run but for the end of the process; returns the exit status. */
    public static int run(PrintStream out, PrintStream progress, String... args)
            throws IOException, InterruptedException {
        Options options;
        try {
            options = Options.parse(args);
        } catch (IllegalArgumentException e) {
            progress.println(e.getMessage() + "\n" + Options.USAGE);
            return 2;
        }
        Report report = new Driver(options, progress).run();
        out.println(report.json());
        if (options.report() != null) {
            Files.writeString(options.report(), report.json() + "\n");
        }
        return report.asExpected() ? 0 : 1;
    }
}
