package demo.shop;

import java.time.Duration;

/**
 * Starts the shop and stays until it is told to stop by {@code POST /admin/stop}; the exit status is then 0.
 * SIGTERM ends the process the JVM's own way, with status 143. All settings are system properties, see
 * {@link Settings}; {@code -Dshop.wait.probe=true} keeps the shop from announcing its port, on the one line
 * "shop listening on PORT", before a collector in this JVM records events (at most 60 seconds).
 */
public final class Main {
    private static final Duration PROBE_LIMIT = Duration.ofSeconds(60);

    private Main() {
    }

    public static void main(String[] args) throws Exception {
        try (Shop shop = Shop.start(Settings.fromSystemProperties())) {
            if (Boolean.getBoolean("shop.wait.probe") && !ProbeGate.await(PROBE_LIMIT)) {
                System.err.println("shop: no collector is recording in this JVM");
            }
            System.out.println("shop listening on " + shop.port());
            shop.awaitStop();
        }
    }
}
