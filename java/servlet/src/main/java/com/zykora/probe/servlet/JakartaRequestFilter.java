package com.zykora.probe.servlet;

import jakarta.servlet.DispatcherType;
import jakarta.servlet.Filter;
import jakarta.servlet.FilterChain;
import jakarta.servlet.ServletException;
import jakarta.servlet.ServletRequest;
import jakarta.servlet.ServletResponse;
import jakarta.servlet.annotation.WebFilter;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;
import java.io.IOException;

/**
 * Reports every request of an application, for servers with the jakarta API. A server that scans the
 * application's jars finds it by its annotation; otherwise map it first in the chain, to "/*", with asynchronous
 * requests supported. Mapped to FORWARD, INCLUDE or ERROR too, it reports those as requests of their own.
 *
 * <p>The nesting of requests is kept for each thread, so an asynchronous request ends for the collector when
 * its first thread leaves the chain, with the status that stands then.
 */
@WebFilter(filterName = "am-request-filter", urlPatterns = "/*", asyncSupported = true)
public class JakartaRequestFilter implements Filter {
    private static final String INCLUDE = "jakarta.servlet.include.";
    private final RequestRecorder recorder;

    public JakartaRequestFilter() {
        this(RequestRecorder.ofAgent());
    }

    JakartaRequestFilter(RequestRecorder recorder) {
        this.recorder = recorder;
    }

    @Override
    public void doFilter(ServletRequest request, ServletResponse response, FilterChain chain)
            throws IOException, ServletException {
        HttpCall call = recorder.isActive() && response instanceof HttpServletResponse ? describe(request) : null;
        if (call == null || !recorder.begin(call)) {
            chain.doFilter(request, response);
            return;
        }
        Throwable failure = null;
        try {
            chain.doFilter(request, response);
        } catch (Throwable thrown) {
            failure = thrown;
            throw thrown;
        } finally {
            recorder.end(call, ((HttpServletResponse) response).getStatus(), failure);
        }
    }

    /** Null for what is not HTTP, or not readable. */
    private static HttpCall describe(ServletRequest request) {
        try {
            HttpServletRequest http = (HttpServletRequest) request;
            boolean included = http.getDispatcherType() == DispatcherType.INCLUDE;
            Object path = included ? http.getAttribute(INCLUDE + "servlet_path") : http.getServletPath();
            Object info = included ? http.getAttribute(INCLUDE + "path_info") : http.getPathInfo();
            return new HttpCall(http.getContextPath(), (String) path, (String) info, http.getRequestURL(),
                    http.getRemoteUser());
        } catch (RuntimeException unreadable) {
            return null;
        }
    }
}
