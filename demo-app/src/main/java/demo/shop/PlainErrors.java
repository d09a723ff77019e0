package demo.shop;

import java.io.IOException;
import java.io.Writer;
import java.util.Objects;
import org.apache.catalina.connector.Request;
import org.apache.catalina.connector.Response;
import org.apache.catalina.valves.ErrorReportValve;

/**
 * Writes the body of every failed request: one line with the status. The container's own page shows the stack of
 * an exception, which is not the same with a filter in front; and for exceptions it drops the headers set so far,
 * so the count of statements is put back here.
 */
public final class PlainErrors extends ErrorReportValve {
    @Override
    protected void report(Request request, Response response, Throwable thrown) {
        int status = response.getStatus();
        if (status < 400 || response.getContentWritten() > 0 || !response.setErrorReported()) {
            return;
        }
        Object statements = request.getAttribute(ShopServlet.STATEMENTS);
        response.setHeader(ShopServlet.STATEMENTS_HEADER, Objects.toString(statements, "0"));
        response.setContentType("text/plain");
        try {
            Writer writer = response.getReporter();
            if (writer != null) {
                writer.write("error " + status + "\n");
                response.finishResponse();
            }
        } catch (IOException e) {
            return; // the client has gone
        }
    }
}
