package demo.shop;

import jakarta.servlet.ServletException;
import jakarta.servlet.http.HttpServlet;
import jakarta.servlet.http.HttpServletRequest;
import jakarta.servlet.http.HttpServletResponse;
import java.io.IOException;
import java.nio.charset.StandardCharsets;
import java.sql.SQLException;

/**
 * Serves every path of the shop from {@link Pages}. Each answer tells in the header X-Statements how many SQL
 * statements its request executed; {@link PlainErrors} does so for the failed ones.
 */
final class ShopServlet extends HttpServlet {
    private static final long serialVersionUID = 1;

    static final String STATEMENTS_HEADER = "X-Statements";
    /** Request attribute with the number of statements, for whoever writes the answer. */
    static final String STATEMENTS = "shop.statements";

    private final transient Database database;

    ShopServlet(Database database) {
        this.database = database;
    }

    @Override
    protected void service(HttpServletRequest request, HttpServletResponse response)
            throws ServletException, IOException {
        Pages.Page page = Pages.BY_PATH.get(request.getServletPath());
        if (page == null) {
            response.sendError(HttpServletResponse.SC_NOT_FOUND);
            return;
        }
        try {
            write(response, render(page, request), request.getAttribute(STATEMENTS));
        } catch (Pages.Refused e) {
            response.sendError(e.status);
        } catch (SQLException e) {
            throw new ServletException(e);
        }
    }

    private String render(Pages.Page page, HttpServletRequest request) throws SQLException {
        try (Session db = database.open()) {
            try {
                return page.render(db, request);
            } finally {
                request.setAttribute(STATEMENTS, db.statements());
            }
        }
    }

    private static void write(HttpServletResponse response, String body, Object statements) throws IOException {
        byte[] bytes = body.getBytes(StandardCharsets.UTF_8);
        response.setHeader(STATEMENTS_HEADER, statements.toString());
        response.setContentType("text/plain;charset=UTF-8");
        response.setContentLength(bytes.length);
        response.getOutputStream().write(bytes);
    }
}
