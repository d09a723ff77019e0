package bench.child;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import java.nio.ByteBuffer;
import java.nio.charset.StandardCharsets;
import java.util.List;
import java.util.function.IntConsumer;

/** One begin and one end of each family of requests, with texts of the usual length. */
final class Families {
    static final String SQL = "SELECT p.id, p.name, p.price, s.amount FROM product p JOIN stock s"
            + " ON s.product_id = p.id WHERE p.category = ? AND p.price < ? ORDER BY p.price";
    static final String SOURCE = "jdbc/shop";
    static final byte[] BEAN = bean("CartBean", "addItem", "shop");

    private Families() {
    }

    static void openRequest() {
        NativeEventAgentImpl.startHttpRequestNative(0, "/shop/search", "shop", "http://shop.local/search", "user7");
    }

    static void closeRequest() {
        NativeEventAgentImpl.finishHttpRequestNative("/shop/search");
    }

    static final Case HTTP = outside("http", () -> {
        openRequest();
        closeRequest();
    });

    static final Case SQL_PAIR = inside("sql", () -> {
        NativeEventAgentImpl.beginSQLRequestNative(SQL, SOURCE);
        NativeEventAgentImpl.endSQLRequestNative(SQL, SOURCE);
    });

    static List<Case> all() {
        return List.of(HTTP,
                inside("ejb", () -> {
                    NativeEventAgentImpl.beginEJBRequestNative(BEAN, BEAN.length);
                    NativeEventAgentImpl.endEJBRequestNative();
                }),
                SQL_PAIR,
                inside("jca", () -> {
                    NativeEventAgentImpl.beginJCARequestNative("pool/shop", "stock adapter");
                    NativeEventAgentImpl.endJCARequestNative("pool/shop", "stock adapter");
                }),
                inside("jndi", () -> {
                    NativeEventAgentImpl.beginJNDIRequestNative("jdbc/shop", "iiop://names.local");
                    NativeEventAgentImpl.endJNDIRequestNative("jdbc/shop", "iiop://names.local");
                }),
                inside("jdo", () -> {
                    NativeEventAgentImpl.beginJDORequestNative("shop.Order", "find", "id=17");
                    NativeEventAgentImpl.endJDORequestNative("shop.Order", "find", "id=17");
                }),
                inside("jms", () -> {
                    NativeEventAgentImpl.beginJMSRequestNative(1, "orders", "tcp://queues.local", "kind = 3");
                    NativeEventAgentImpl.endJMSRequestNative(1, "orders", "tcp://queues.local", "kind = 3");
                }),
                inside("mail", () -> {
                    NativeEventAgentImpl.beginMailRequestNative("Your order", "smtp://mail.local");
                    NativeEventAgentImpl.endMailRequestNative("Your order", "smtp://mail.local");
                }),
                inside("xq", () -> {
                    NativeEventAgentImpl.beginXQRequestNative("manager1", "orders", 2);
                    NativeEventAgentImpl.endXQRequestNative("manager1", "orders", 2, null, false);
                }),
                inside("iiop client", () -> {
                    NativeEventAgentImpl.startIIOPClientRequestNative("shop.Stock", "reserve");
                    NativeEventAgentImpl.finishIIOPClientRequestNative("shop.Stock", "reserve");
                }),
                inside("iiop server", () -> {
                    NativeEventAgentImpl.startIIOPServerRequestNative("shop.Stock", "reserve");
                    NativeEventAgentImpl.finishIIOPServerRequestNative("shop.Stock", "reserve");
                }),
                inside("ws client", () -> {
                    NativeEventAgentImpl.wsHelperClientRequestNative("shop", "price", "http://prices.local/ws");
                    NativeEventAgentImpl.wsHelperClientResponseNative("shop", "price", "http://prices.local/ws");
                }),
                inside("ws provider", () -> {
                    NativeEventAgentImpl.wsHelperProviderRequestNative("shop", "price", "http://shop.local/ws");
                    NativeEventAgentImpl.wsHelperProviderResponseNative("shop", "price", "http://shop.local/ws");
                }),
                inside("generic", () -> {
                    NativeEventAgentImpl.genericStartEventNative(7, VALUES.length, VALUES);
                    NativeEventAgentImpl.genericStopEventNative(7);
                }));
    }

    private static final Object[] VALUES = {"order", "17"};

    private static Case inside(String name, Runnable pair) {
        return new Case(name, true, repeat(pair));
    }

    private static Case outside(String name, Runnable pair) {
        return new Case(name, false, repeat(pair));
    }

    static IntConsumer repeat(Runnable once) {
        return count -> {
            for (int i = 0; i < count; i++) {
                once.run();
            }
        };
    }

    /** As the Java half composes it: the length of what follows, then three texts, each with its length. */
    private static byte[] bean(String... texts) {
        ByteBuffer payload = ByteBuffer.allocate(256).putShort((short) 0);
        for (String text : texts) {
            byte[] bytes = text.getBytes(StandardCharsets.UTF_8);
            payload.putShort((short) bytes.length).put(bytes);
        }
        payload.putShort(0, (short) (payload.position() - 2));
        byte[] result = new byte[payload.position()];
        payload.flip().get(result);
        return result;
    }
}
