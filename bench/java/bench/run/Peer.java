package bench.run;

import java.io.IOException;

/** What a collector finds where it looks for its Publish Server, for one run. */
interface Peer extends AutoCloseable {
    enum Kind { HEALTHY, NEVER_READS, RESETS, NONE }

    /** Nobody listens there. */
    int UNUSED_PORT = 1;

    int port();

    /** Ends it; what a healthy one has counted, null of the others. */
    Statistics finish() throws IOException, InterruptedException;

    @Override
    void close() throws IOException;

    static Peer of(Kind kind, Install install) throws IOException {
        return switch (kind) {
        case HEALTHY -> new Receiver(install);
        case NEVER_READS -> new RudePeer(false);
        case RESETS -> new RudePeer(true);
        case NONE -> new Nobody();
        };
    }

    /** No Publish Server at all. */
    record Nobody() implements Peer {
        @Override
        public int port() {
            return UNUSED_PORT;
        }

        @Override
        public Statistics finish() {
            return null;
        }

        @Override
        public void close() {
            // There is nothing to close.
        }
    }
}
