package demo.shop;

import jakarta.servlet.FilterChain;
import jakarta.servlet.ServletException;
import jakarta.servlet.ServletRequest;
import jakarta.servlet.ServletResponse;
import jakarta.servlet.http.HttpFilter;
import java.io.IOException;
import java.util.concurrent.atomic.AtomicInteger;

/** Counts the requests that a monitor's filter in its place would see. */
public final class CountingFilter extends HttpFilter {
    static final AtomicInteger SEEN = new AtomicInteger();
    private static final long serialVersionUID = 1;

    @Override
    public void doFilter(ServletRequest request, ServletResponse response, FilterChain chain)
            throws IOException, ServletException {
        SEEN.incrementAndGet();
        chain.doFilter(request, response);
    }
}
