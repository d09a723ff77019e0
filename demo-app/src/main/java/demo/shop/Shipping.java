package demo.shop;

import java.sql.SQLException;

/**
 * The SQL function SHIPPING_COST. The database calls it in the middle of a statement, on the request's thread, and
 * it executes a statement itself: so one statement runs inside another.
 */
public final class Shipping {
    private Shipping() {
    }

    /** Cents for a parcel of {@code grams}. */
    public static long cost(long grams) throws SQLException {
        return Session.current().numberBeside("SELECT MIN(cents) FROM shipping_rate WHERE up_to_grams >= ?", grams);
    }
}
