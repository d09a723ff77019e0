package demo.shop;

/**
 * How a shop is started.
 *
 * @param port       TCP port on 127.0.0.1, 0 for any free one; property {@code shop.port}, default 0
 * @param threads    most requests served at a time; property {@code shop.threads}, default 32
 * @param jdbcPrefix what stands before "h2:..." in the database URL of the requests; property
 *                   {@code shop.jdbc.prefix}, default "jdbc:"
 * @param filter     class name of a servlet filter that sees every request, empty for none; property
 *                   {@code shop.filter}, default empty
 */
record Settings(int port, int threads, String jdbcPrefix, String filter) {
    static Settings fromSystemProperties() {
        return new Settings(Integer.getInteger("shop.port", 0), Integer.getInteger("shop.threads", 32),
                System.getProperty("shop.jdbc.prefix", "jdbc:"), System.getProperty("shop.filter", ""));
    }
}
