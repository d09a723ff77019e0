package demo.shop;

import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import java.io.IOException;
import java.net.ConnectException;
import java.net.URI;
import java.net.http.HttpClient;
import java.net.http.HttpRequest;
import java.net.http.HttpRequest.BodyPublishers;
import java.net.http.HttpResponse;
import java.net.http.HttpResponse.BodyHandlers;
import java.util.List;
import java.util.Set;
import java.util.concurrent.CompletableFuture;
import java.util.stream.Collectors;
import java.util.stream.Stream;
import org.junit.jupiter.api.AfterAll;
import org.junit.jupiter.api.BeforeAll;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.Timeout;
import org.junit.jupiter.params.ParameterizedTest;
import org.junit.jupiter.params.provider.CsvSource;

@Timeout(60)
class ShopTest {
    private static final int THREADS = 8;
    private static final HttpClient CLIENT = HttpClient.newBuilder().version(HttpClient.Version.HTTP_1_1).build();
    private static Shop shop;

    @BeforeAll
    static void start() throws Exception {
        shop = Shop.start(new Settings(0, THREADS, "jdbc:", "no.such.Filter"));
    }

    @AfterAll
    static void stop() throws Exception {
        shop.close();
    }

    @ParameterizedTest
    @CsvSource(delimiter = '|', value = {
        "/catalogue?category=3                      | 200 | 2  | catalogue honey;3 green honey 3 310;",
        "/catalogue?category=99                     | 200 | 2  | catalogue;",
        "/item?id=5                                 | 200 | 3  | item wild pasta 5 384;reviews 8;stars 32;",
        "/item?id=none                              | 400 | 0  | error 400;",
        "/item                                      | 400 | 0  | error 400;",
        "/search?q=wild+honey                       | 200 | 1  | search wild honey;19 wild honey 19;",
        "/search?q=%25'%3B+DROP+TABLE+item          | 200 | 1  | search %'",
        "/cart/add?cart=1&item=4&quantity=2         | 200 | 3  | cart 1: 2 x dark oil 4;",
        "/checkout?cart=1&items=12,4,9              | 200 | 11 | order of cart 1;goods 1522;shipping 490;",
        "/checkout?cart=1&items=4                   | 400 | 0  | error 400;",
        "/report                                    | 200 | 2  | report;sales 12000;coffee 25 ",
        "/slow                                      | 200 | 1  | slow 200;",
        "/fail                                      | 500 | 1  | error 500;",
        "/broken                                    | 500 | 2  | error 500;",
        "/missing                                   | 404 | 0  | error 404;",
    })
    void pageTellsWhatItExecuted(String target, int status, int statements, String start) throws Exception {
        HttpResponse<String> answer = send(shop.port(), "GET", target);
        assertEquals(status, answer.statusCode());
        String body = answer.body().replace('\n', ';');
        assertTrue(body.startsWith(start), body);
        assertEquals(List.of(Integer.toString(statements)), answer.headers().allValues("X-Statements"));
    }

    @Test
    void failedTransactionGivesItsConnectionAndLocksBack() throws Exception {
        for (int i = 0; i < 3 * THREADS; i++) {
            assertEquals(500, send(shop.port(), "GET", "/broken").statusCode());
        }
        assertEquals(200, send(shop.port(), "POST", "/cart/add?cart=0&item=1&quantity=1").statusCode());
    }

    @Test
    void checkoutsOfOneCartGoOneAfterTheOther() {
        HttpRequest checkout = request(shop.port(), "POST", "/checkout?cart=7&items=1,2,3");
        List<CompletableFuture<HttpResponse<String>>> all = Stream.generate(
                () -> CLIENT.sendAsync(checkout, BodyHandlers.ofString())).limit(100).toList();
        Set<String> answers = all.stream().map(one -> one.join().statusCode() + " " + one.join().body())
                .collect(Collectors.toSet());
        assertEquals(Set.of("200 order of cart 7\ngoods 819\nshipping 390\n"), answers);
    }

    @Test
    void stopsWhenAskedOverHttp() throws Exception {
        Shop other = Shop.start(new Settings(0, 2, "jdbc:", "no.such.Filter"));
        int port = other.port();
        assertEquals(405, send(port, "GET", "/admin/stop").statusCode(), "a link must not stop it");
        assertEquals(404, send(port, "POST", "/admin/other").statusCode());
        assertEquals("stopping", send(port, "POST", "/admin/stop").body().strip());
        other.awaitStop();
        other.close();
        assertThrows(ConnectException.class, () -> send(port, "GET", "/slow"));
    }

    private static HttpResponse<String> send(int port, String method, String target)
            throws IOException, InterruptedException {
        return CLIENT.send(request(port, method, target), BodyHandlers.ofString());
    }

    private static HttpRequest request(int port, String method, String target) {
        URI uri = URI.create("http://127.0.0.1:" + port + target);
        return HttpRequest.newBuilder(uri).method(method, BodyPublishers.noBody()).build();
    }
}
