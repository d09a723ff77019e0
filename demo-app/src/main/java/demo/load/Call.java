package demo.load;

import java.net.URI;
import java.util.List;
import java.util.Map;
import java.util.function.LongFunction;
import java.util.stream.Stream;

/**
 * One kind of request and what the answer to it must be. The parameters follow from the request's number alone, so
 * the same number of requests is the same set of requests in every run.
 *
 * @param method     GET or POST
 * @param path       the page, without parameters
 * @param query      parameters for request number i, without the question mark; "" for none
 * @param status     HTTP status of the answer
 * @param statements what the header X-Statements must tell
 * @param start      how the body must start
 */
record Call(String method, String path, LongFunction<String> query, int status, int statements, String start) {
    private static final List<String> WORDS = List.of("green", "dark", "oil", "wild honey", "tea 1", "nothing");

    private static final Call CATALOGUE = get("/catalogue", 2, i -> "category=" + i % 8);
    private static final Call ITEM = get("/item", 3, i -> "id=" + (1 + i % 200));
    private static final Call SEARCH =
            get("/search", 1, i -> "q=" + WORDS.get((int) (i % WORDS.size())).replace(' ', '+'));
    private static final Call ADD = new Call("POST", "/cart/add",
            i -> "cart=" + i % 64 + "&item=" + (1 + i % 50) + "&quantity=" + (1 + i % 3), 200, 3, "cart ");
    private static final Call CHECKOUT = new Call("POST", "/checkout",
            i -> "cart=" + i % 64 + "&items=" + (1 + i % 50) + "," + (70 + i % 30) + "," + (150 + i % 40),
            200, 11, "order of cart ");
    private static final Call REPORT = get("/report", 2, i -> "");
    private static final Call SLOW = get("/slow", 1, i -> "");
    private static final Call MISSING = failing("/missing", 404, 0);
    private static final Call FAIL = failing("/fail", 500, 1);
    private static final Call BROKEN = failing("/broken", 500, 2);

    /** By name: "fixed" has every page, "fast" leaves out the two that take long, for runs of many requests. */
    static final Map<String, List<Call>> MIXES = Map.of(
            "fixed", List.of(CATALOGUE, ITEM, ADD, SEARCH, ITEM, SLOW, CATALOGUE, ITEM, MISSING, SEARCH,
                    CHECKOUT, CATALOGUE, REPORT, ITEM, FAIL, ADD, CATALOGUE, SEARCH, BROKEN, CATALOGUE),
            "fast", List.of(CATALOGUE, ITEM, ADD, SEARCH, ITEM, CATALOGUE, MISSING, ITEM, CHECKOUT, SEARCH,
                    CATALOGUE, FAIL, ADD, ITEM, BROKEN, CATALOGUE));

    static Stream<String> paths(List<Call> mix) {
        return mix.stream().map(Call::path).distinct().sorted();
    }

    /** The request's path and parameters. */
    String target(long number) {
        String parameters = query.apply(number);
        return parameters.isEmpty() ? path : path + "?" + parameters;
    }

    URI uri(URI base, long number) {
        return base.resolve(target(number));
    }

    private static Call get(String path, int statements, LongFunction<String> query) {
        return new Call("GET", path, query, 200, statements, path.substring(1));
    }

    private static Call failing(String path, int status, int statements) {
        return new Call("GET", path, i -> "", status, statements, "error " + status);
    }
}
