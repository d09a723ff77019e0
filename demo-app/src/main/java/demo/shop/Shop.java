package demo.shop;

import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.nio.file.Files;
import java.nio.file.Path;
import java.sql.SQLException;
import java.util.List;
import java.util.concurrent.CountDownLatch;
import java.util.logging.Level;
import java.util.logging.Logger;
import org.apache.catalina.Context;
import org.apache.catalina.LifecycleException;
import org.apache.catalina.connector.Connector;
import org.apache.catalina.core.StandardContext;
import org.apache.catalina.core.StandardHost;
import org.apache.catalina.startup.ExpandWar;
import org.apache.catalina.startup.Tomcat;
import org.apache.tomcat.util.descriptor.web.FilterDef;
import org.apache.tomcat.util.descriptor.web.FilterMap;

/**
 * The running shop: an embedded servlet container on the loopback address with the shop as its root application.
 * The stop switch is an application of its own, so that a filter of the shop never sees it. Thread safe.
 */
public final class Shop implements AutoCloseable {
    /** Kept here because the logging system itself holds its loggers weakly. */
    private static final List<Logger> LOGGERS = List.of(Logger.getLogger("org.apache"),
            Logger.getLogger("org.apache.catalina.core.ContainerBase.[Tomcat].[localhost].[/].[shop]"));

    private final CountDownLatch stopAsked = new CountDownLatch(1);
    private final Database database;
    private final Path directory;
    private final Tomcat tomcat = new Tomcat();

    private Shop(Settings settings) throws IOException, SQLException {
        database = new Database(settings.jdbcPrefix(), 2 * settings.threads());
        directory = Files.createTempDirectory("shop");
        tomcat.setBaseDir(directory.toString());
        tomcat.setConnector(connector(settings));
        ((StandardHost) tomcat.getHost()).setErrorReportValveClass(PlainErrors.class.getName());
        Context shop = application("", "shop", new ShopServlet(database));
        shop.setDisplayName("shop");
        if (!settings.filter().isEmpty()) {
            addFilter(shop, settings.filter());
        }
        application("/admin", "admin", new AdminServlet());
    }

    /** Starts a shop that answers when this returns; the caller closes it. */
    static Shop start(Settings settings) throws IOException, SQLException, LifecycleException {
        quietLogs();
        Shop shop = new Shop(settings);
        shop.tomcat.start();
        return shop;
    }

    /** The port that is listened on, also when any free one was asked for. */
    int port() {
        return tomcat.getConnector().getLocalPort();
    }

    /** Returns when somebody has asked for the stop over HTTP. */
    void awaitStop() throws InterruptedException {
        stopAsked.await();
    }

    @Override
    public void close() throws LifecycleException, SQLException {
        tomcat.stop();
        tomcat.destroy();
        database.close();
        ExpandWar.delete(directory.toFile());
    }

    private static Connector connector(Settings settings) {
        Connector connector = new Connector();
        connector.setPort(settings.port());
        connector.setProperty("address", "127.0.0.1");
        connector.setProperty("maxThreads", Integer.toString(settings.threads()));
        // A connection that the server closes on its own could make a client repeat, and so count, a request twice.
        connector.setProperty("maxKeepAliveRequests", "-1");
        return connector;
    }

    private Context application(String path, String servletName, HttpServlet servlet) {
        StandardContext context = (StandardContext) tomcat.addContext(path, null);
        // They look for what a redeployed application leaves behind and warn that they may not look.
        context.setClearReferencesObjectStreamClassCaches(false);
        context.setClearReferencesThreadLocals(false);
        context.setClearReferencesRmiTargets(false);
        context.setParentClassLoader(Shop.class.getClassLoader());
        Tomcat.addServlet(context, servletName, servlet);
        context.addServletMappingDecoded("/", servletName);
        return context;
    }

    private static void addFilter(Context context, String className) {
        try {
            Class.forName(className, false, Shop.class.getClassLoader());
        } catch (ClassNotFoundException e) {
            System.err.println("shop: filter " + className + " is not on the class path, serving without it");
            return;
        }
        FilterDef definition = new FilterDef();
        definition.setFilterName("monitor");
        definition.setFilterClass(className);
        definition.setAsyncSupported("true");
        context.addFilterDef(definition);
        FilterMap map = new FilterMap();
        map.setFilterName("monitor");
        map.addURLPatternDecoded("/*");
        context.addFilterMap(map);
    }

    /** A page that breaks on purpose, hundreds of times in a run, must not bury what goes wrong by accident. */
    private static void quietLogs() {
        LOGGERS.get(0).setLevel(Level.WARNING);
        LOGGERS.get(1).setFilter(line -> !(line.getThrown() instanceof Pages.Broken));
    }

    private final class AdminServlet extends HttpServlet {
        private static final long serialVersionUID = 1;

        @Override
        protected void doPost(HttpServletRequest request, HttpServletResponse response) throws IOException {
            if (!"/stop".equals(request.getServletPath())) {
                response.sendError(HttpServletResponse.SC_NOT_FOUND);
                return;
            }
            byte[] body = "stopping\n".getBytes(StandardCharsets.US_ASCII);
            response.setContentLength(body.length); // complete once flushed: nothing of it is left to the stop
            response.getOutputStream().write(body);
            response.flushBuffer();
            stopAsked.countDown();
        }
    }
}
