package bench.run;

import java.io.IOException;
import java.net.InetAddress;
import java.net.ServerSocket;
import java.net.Socket;
import java.util.ArrayList;
import java.util.List;

/** Listens like a Publish Server and never reads; if told so it also resets its connections every two seconds. */
final class RudePeer implements Peer {
    private static final int RESET_MILLIS = 2000;

    private final ServerSocket listener = new ServerSocket(0, 16, InetAddress.getLoopbackAddress());
    private final List<Socket> open = new ArrayList<>();

    RudePeer(boolean resets) throws IOException {
        start(this::accept);
        if (resets) {
            start(this::reset);
        }
    }

    @Override
    public int port() {
        return listener.getLocalPort();
    }

    @Override
    public Statistics finish() {
        return null;
    }

    private void accept() {
        try {
            while (true) {
                Socket connection = listener.accept();
                synchronized (open) {
                    open.add(connection);
                }
            }
        } catch (IOException closed) {
            closeAll();
        }
    }

    private void reset() {
        while (!listener.isClosed()) {
            try {
                Thread.sleep(RESET_MILLIS);
            } catch (InterruptedException stopped) {
                return;
            }
            closeAll();
        }
    }

    private void closeAll() {
        synchronized (open) {
            for (Socket connection : open) {
                try {
                    connection.setSoLinger(true, 0); // a reset, not an orderly end
                    connection.close();
                } catch (IOException gone) {
                    // That is what it is for.
                }
            }
            open.clear();
        }
    }

    private static void start(Runnable work) {
        Thread thread = new Thread(work);
        thread.setDaemon(true);
        thread.start();
    }

    @Override
    public void close() throws IOException {
        listener.close();
        closeAll();
    }
}
