package com.zykora.probe.servlet;

import jakarta.servlet.AsyncContext;
import jakarta.servlet.DispatcherType;
import jakarta.servlet.ServletException;
import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;
import java.io.IOException;
import java.io.UncheckedIOException;
import java.util.logging.Level;
import java.util.logging.Logger;
import org.apache.catalina.Context;
import org.apache.catalina.Wrapper;
import org.apache.catalina.startup.Tomcat;
import org.apache.tomcat.util.descriptor.web.FilterDef;
import org.apache.tomcat.util.descriptor.web.FilterMap;

class JakartaRequestFilterTest extends RequestFilterCases {
    private static final Logger SERVER_LOG = Logger.getLogger("org.apache");
    private Tomcat tomcat;

    @Override
    int startServer(RequestRecorder recorder, boolean dispatches) throws Exception {
        SERVER_LOG.setLevel(Level.OFF);
        tomcat = new Tomcat();
        tomcat.setBaseDir("target/tomcat");
        tomcat.setPort(0);
        tomcat.getConnector().setProperty("address", "127.0.0.1");
        Context context = tomcat.addContext("/shop", null);
        FilterDef filter = new FilterDef();
        filter.setFilterName("am-request-filter");
        filter.setFilter(new JakartaRequestFilter(recorder));
        filter.setAsyncSupported("true");
        context.addFilterDef(filter);
        context.addFilterMap(mapping(dispatches));
        Wrapper servlet = Tomcat.addServlet(context, "shop", new ShopServlet());
        servlet.setAsyncSupported(true);
        for (String path : new String[] {"/ok/*", "/"}) {
            context.addServletMappingDecoded(path, "shop");
        }
        tomcat.start();
        return tomcat.getConnector().getLocalPort();
    }

    private static FilterMap mapping(boolean dispatches) {
        FilterMap map = new FilterMap();
        map.setFilterName("am-request-filter");
        map.addURLPattern("/*");
        for (DispatcherType type : DispatcherType.values()) {
            if (type == DispatcherType.REQUEST || dispatches && type != DispatcherType.ASYNC) {
                map.setDispatcher(type.name());
            }
        }
        return map;
    }

    @Override
    void stopServer() throws Exception {
        tomcat.stop();
        tomcat.destroy();
    }

    /** Behaves as its path says. */
    private static final class ShopServlet extends HttpServlet {
        @Override
        protected void doGet(HttpServletRequest request, HttpServletResponse response)
                throws ServletException, IOException {
            switch (request.getServletPath()) {
                case "/error":
                    response.sendError(404);
                    break;
                case "/status":
                    response.setStatus(418);
                    response.getWriter().print("teapot");
                    break;
                case "/unchecked":
                    throw new IllegalStateException("on purpose");
                case "/checked":
                    throw new IOException("on purpose");
                case "/fatal":
                    throw new StackOverflowError("on purpose");
                case "/async":
                    AsyncContext async = request.startAsync();
                    new Thread(() -> answerLater(async)).start();
                    break;
                case "/forward":
                    request.getRequestDispatcher("/ok").forward(request, response);
                    break;
                case "/include":
                    if (request.getDispatcherType() == DispatcherType.INCLUDE) {
                        response.getWriter().print("ok");
                        break;
                    }
                    response.getWriter().print("[");
                    request.getRequestDispatcher("/ok").include(request, response);
                    response.getWriter().print("]");
                    break;
                default:
                    response.getWriter().print("ok");
            }
        }

        private static void answerLater(AsyncContext async) {
            try {
                async.getResponse().getWriter().print("later");
                async.complete();
            } catch (IOException e) {
                throw new UncheckedIOException(e);
            }
        }
    }
}
