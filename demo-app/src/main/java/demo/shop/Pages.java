package demo.shop;

import jakarta.servlet.http.HttpServletRequest;
import java.sql.SQLException;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Map;

/**
 * The shop's pages by path. Each executes a fixed number of statements, and its text follows from its parameters
 * alone, whatever ran before or runs beside it: so two runs of the same requests can be compared byte by byte.
 */
final class Pages {
    private static final int SLOW_MS = 40;

    static final Map<String, Page> BY_PATH = Map.of(
            "/catalogue", Pages::catalogue,
            "/item", Pages::item,
            "/search", Pages::search,
            "/cart/add", Pages::addToCart,
            "/checkout", Pages::checkout,
            "/report", Pages::report,
            "/slow", Pages::slow,
            "/fail", Pages::fail,
            "/broken", Pages::broken);

    interface Page {
        String render(Session db, HttpServletRequest request) throws SQLException;
    }

    /** A page's own decision to answer with an error status. */
    static final class Refused extends RuntimeException {
        private static final long serialVersionUID = 1;
        final int status;

        Refused(int status) {
            super("status " + status, null, false, false);
            this.status = status;
        }
    }

    /** What {@code /broken} throws on purpose, so that the log can tell it from a real fault. */
    static final class Broken extends RuntimeException {
        private static final long serialVersionUID = 1;

        Broken() {
            super("broken on purpose");
        }
    }

    private Pages() {
    }

    private static String catalogue(Session db, HttpServletRequest request) throws SQLException {
        int category = number(request, "category");
        StringBuilder text = new StringBuilder("catalogue");
        db.query("SELECT name FROM category WHERE id = ?", row -> text.append(' ').append(row.getString(1)), category);
        db.query("SELECT id, name, cents FROM item WHERE category = ? ORDER BY id",
                row -> text.append('\n').append(row.getInt(1)).append(' ').append(row.getString(2)).append(' ')
                        .append(row.getInt(3)),
                category);
        return text.append('\n').toString();
    }

    private static String item(Session db, HttpServletRequest request) throws SQLException {
        int id = number(request, "id");
        StringBuilder text = new StringBuilder("item");
        db.query("SELECT name, cents FROM item WHERE id = ?",
                row -> text.append(' ').append(row.getString(1)).append(' ').append(row.getInt(2)), id);
        text.append("\nreviews ").append(db.number("SELECT COUNT(*) FROM review WHERE item = ?", id));
        text.append("\nstars ").append(db.number("SELECT SUM(stars) FROM review WHERE item = ?", id));
        return text.append('\n').toString();
    }

    private static String search(Session db, HttpServletRequest request) throws SQLException {
        String words = text(request, "q");
        StringBuilder text = new StringBuilder("search ").append(words);
        db.query("SELECT id, name FROM item WHERE name LIKE ? ORDER BY id",
                row -> text.append('\n').append(row.getInt(1)).append(' ').append(row.getString(2)),
                "%" + words + "%");
        return text.append('\n').toString();
    }

    private static String addToCart(Session db, HttpServletRequest request) throws SQLException {
        int cart = number(request, "cart");
        int item = number(request, "item");
        int quantity = number(request, "quantity");
        StringBuilder text = new StringBuilder("cart ").append(cart);
        db.transaction(() -> {
            lock(db, cart);
            db.update("MERGE INTO cart_line KEY (cart, item) VALUES (?, ?, ?)", cart, item, quantity);
            db.query("SELECT name, quantity FROM cart_line JOIN item ON id = item WHERE cart = ? AND item = ?",
                    row -> text.append(": ").append(row.getInt(2)).append(" x ").append(row.getString(1)), cart, item);
        });
        return text.append('\n').toString();
    }

    /** Replaces the cart's last order, so the database stays the same size however long the load runs. */
    private static String checkout(Session db, HttpServletRequest request) throws SQLException {
        int cart = number(request, "cart");
        Object[] items = Arrays.stream(text(request, "items").split(",")).map(Pages::parse).toArray();
        if (items.length != 3) {
            throw new Refused(400);
        }
        StringBuilder text = new StringBuilder("order of cart ").append(cart);
        db.transaction(() -> {
            lock(db, cart);
            db.update("DELETE FROM order_line WHERE cart = ?", cart);
            long grams = order(db, cart, items);
            db.update("DELETE FROM cart_line WHERE cart = ?", cart);
            text.append("\ngoods ").append(db.number("SELECT SUM(cents) FROM order_line WHERE cart = ?", cart));
            text.append("\nshipping ").append(db.number("SELECT shipping_cost(?)", grams));
        });
        return text.append('\n').toString();
    }

    /** Writes the order's lines, each sale noted while the goods are still being read; returns the weight. */
    private static long order(Session db, int cart, Object[] items) throws SQLException {
        List<Object[]> lines = new ArrayList<>();
        long[] grams = new long[1];
        // Rows come by id: every checkout locks goods in the same order, and none can wait in a circle.
        db.query("SELECT id, cents, grams FROM item WHERE id IN (?, ?, ?) ORDER BY id", row -> {
            db.update("UPDATE item SET sold = sold + 1 WHERE id = ?", row.getInt(1));
            lines.add(new Object[] {cart, row.getInt(1), 1, row.getInt(2)});
            grams[0] += row.getInt(3);
        }, items);
        db.batch("INSERT INTO order_line VALUES (?, ?, ?, ?)", lines);
        return grams[0];
    }

    /** Two requests for one cart go one after the other. */
    private static void lock(Session db, int cart) throws SQLException {
        db.number("SELECT id FROM cart WHERE id = ? FOR UPDATE", cart);
    }

    private static String report(Session db, HttpServletRequest request) throws SQLException {
        StringBuilder text = new StringBuilder("report");
        text.append("\nsales ").append(db.number("SELECT COUNT(*) FROM sale"));
        db.direct("SELECT c.name, COUNT(DISTINCT s.item), SUM(s.quantity * i.cents) FROM sale s"
                        + " JOIN item i ON i.id = s.item JOIN category c ON c.id = i.category"
                        + " GROUP BY c.name ORDER BY c.name",
                row -> text.append('\n').append(row.getString(1)).append(' ').append(row.getInt(2)).append(' ')
                        .append(row.getLong(3)));
        return text.append('\n').toString();
    }

    private static String slow(Session db, HttpServletRequest request) throws SQLException {
        long items = db.number("SELECT COUNT(*) FROM item");
        try {
            Thread.sleep(SLOW_MS);
        } catch (InterruptedException e) {
            throw new Refused(503);
        }
        return "slow " + items + "\n";
    }

    private static String fail(Session db, HttpServletRequest request) throws SQLException {
        db.number("SELECT COUNT(*) FROM category");
        throw new Refused(500);
    }

    private static String broken(Session db, HttpServletRequest request) throws SQLException {
        db.transaction(() -> {
            lock(db, 0);
            db.update("UPDATE item SET sold = sold + 1 WHERE id = ?", 1);
            throw new Broken();
        });
        return "";
    }

    private static String text(HttpServletRequest request, String name) {
        String value = request.getParameter(name);
        if (value == null) {
            throw new Refused(400);
        }
        return value;
    }

    private static int number(HttpServletRequest request, String name) {
        return parse(text(request, name));
    }

    private static int parse(String value) {
        try {
            return Integer.parseInt(value);
        } catch (NumberFormatException e) {
            throw new Refused(400);
        }
    }
}
