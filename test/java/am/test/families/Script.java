package am.test.families;

import static com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl.*;
import static com.qel.morvex.norak.dc.eventagent.PortalNativeEventAgentImpl.*;

import com.qel.morvex.norak.dc.eventagent.BeanRequest;
import com.zykora.jdbc.ZykoraStatement;
import java.util.LinkedHashMap;
import java.util.Map;
import oracle.jdbc.driver.OracleStatement;

/**
 * The work of an application in words: "+sql" begins a statement and "-sql" ends it, a word without a sign is a
 * call that stands alone. All strings of a call differ, so that none can be taken for another.
 */
public final class Script {
    private static final Map<String, Runnable> WORDS = new LinkedHashMap<>();

    static {
        http();
        statements();
        resources();
        messaging();
        components();
        correlation();
        monitors();
        portal();
        singles();
    }

    private Script() {
    }

    public static void run(String words) {
        for (String word : words.trim().split(" +")) {
            WORDS.get(word).run();
        }
    }

    /** What every native with a result answers on the calling thread. */
    public static int[] threadNumbers() {
        byte[] bean = BeanRequest.compose("Cart", "add", "shop");
        return new int[] {
            startHttpRequestNative(0, "cart", "shop", "http://host/cart", "ann"),
            beginEJBRequestNative(bean, bean.length), endEJBRequestNative(),
            startIIOPClientRequestNative("Stub", "call"), finishIIOPClientRequestNative("Stub", "call"),
            startIIOPServerRequestNative("Skeleton", "serve"), finishIIOPServerRequestNative("Skeleton", "serve"),
            genericStartEventNative(1, 1, new Object[] {"a"}), genericStopEventNative(1),
            errorHttpRequestNative("cart", "shop", "broken"), finishHttpRequestNative("cart"), getEnvNative(),
        };
    }

    private static void pair(String name, Runnable begin, Runnable end) {
        WORDS.put("+" + name, begin);
        WORDS.put("-" + name, end);
    }

    private static void http() {
        pair("http", () -> startHttpRequestNative(0, "cart", "shop", "http://host/cart", "ann"),
                () -> finishHttpRequestNative("cart"));
        WORDS.put("!http", () -> errorHttpRequestNative("cart", "shop", "broken"));
        WORDS.put("-cancel", () -> finishHttpRequestNative("JSP_CANCEL_REQUEST"));
        WORDS.put("!cancel", () -> errorHttpRequestNative("JSP_CANCEL_REQUEST", "shop", "broken"));
        WORDS.put("-cancelled", () -> finishHttpRequestNative("JSP_CANCEL_REQUESTED"));
    }

    private static void statements() {
        ZykoraStatement wrapper = new ZykoraStatement();
        OracleStatement driver = new OracleStatement();
        pair("sql", () -> beginSQLRequestNative("select 1", "ds"), () -> endSQLRequestNative("select 1", "ds"));
        pair("wrapper", () -> wrapper.beginSQLRequest("select 2", "ds2"),
                () -> wrapper.endSQLRequest("select 2", "ds2"));
        pair("driver", () -> driver.beginSQLRequest("select 3", "ds3"),
                () -> driver.endSQLRequest("select 3", "ds3"));
    }

    private static void resources() {
        pair("jca", () -> beginJCARequestNative("pool", "product"),
                () -> endJCARequestNative("pool", "product"));
        pair("jndi", () -> beginJNDIRequestNative("java:ds", "ldap://names"),
                () -> endJNDIRequestNative("java:ds", "ldap://names"));
        pair("mail", () -> beginMailRequestNative("hello", "smtp://post"),
                () -> endMailRequestNative("hello", "smtp://post"));
        pair("jdo", () -> beginJDORequestNative("Order", "find", "id 7"),
                () -> endJDORequestNative("Order", "find", "id 7"));
    }

    private static void messaging() {
        for (int type : new int[] {1, 2, 3, 4, 9, -1}) {
            pair("jms" + type, () -> beginJMSRequestNative(type, "orders", "tcp://broker", "prio > 3"),
                    () -> endJMSRequestNative(type, "orders", "tcp://broker", "prio > 3"));
        }
        pair("xq", () -> beginXQRequestNative("manager", "orders", 7),
                () -> endXQRequestNative("manager", "orders", 7, new byte[] {1, 2, 3}, false));
        WORDS.put("-xqToken", () -> endXQRequestNative("manager", "orders", 7, new byte[] {1, -2, 3}, true));
        WORDS.put("-xqLongest", () -> endXQRequestNative("manager", "orders", 13, new byte[65535], true));
        WORDS.put("-xqTooLong", () -> endXQRequestNative("manager", "orders", 11, new byte[65536], true));
        WORDS.put("-xqNoToken", () -> endXQRequestNative("manager", "orders", 10, null, true));
    }

    private static void components() {
        byte[] bean = BeanRequest.compose("Cart", "add", "shop");
        pair("ejb", () -> beginEJBRequestNative(bean, bean.length), () -> endEJBRequestNative());
        pair("iiopClient", () -> startIIOPClientRequestNative("Stub", "call"),
                () -> finishIIOPClientRequestNative("Stub", "call"));
        pair("iiopServer", () -> startIIOPServerRequestNative("Skeleton", "serve"),
                () -> finishIIOPServerRequestNative("Skeleton", "serve"));
        pair("wsClient", () -> wsHelperClientRequestNative("shop", "pay", "http://bank"),
                () -> wsHelperClientResponseNative("shop", "pay", "http://bank"));
        pair("wsProvider", () -> wsHelperProviderRequestNative("bank", "book", "http://self"),
                () -> wsHelperProviderResponseNative("bank", "book", "http://self"));
        Object[] values = {"a", null, "", 7, "not counted"};
        pair("generic", () -> genericStartEventNative(0x123, 4, values), () -> genericStopEventNative(0x123));
        WORDS.put("+genericShort", () -> genericStartEventNative(1, 9, new Object[] {"x"}));
        WORDS.put("+genericNone", () -> genericStartEventNative(1, 0, values));
        WORDS.put("+genericNull", () -> genericStartEventNative(1, 1, null));
        WORDS.put("+genericNegative", () -> genericStartEventNative(1, -3, values));
        WORDS.put("+genericMany", () -> genericStartEventNative(1, 300, new Object[300]));
        WORDS.put("genericException", () -> genericExceptionEventNative(0x123, 4, values));
        WORDS.put("genericExceptionNull", () -> genericExceptionEventNative(2, 4, null));
        WORDS.put("wsClientFault", () -> wsHelperClientFaultNative("shop", "404", "not found"));
        WORDS.put("wsProviderFault", () -> wsHelperProviderFaultNative("bank", "500", "no money"));
    }

    private static void correlation() {
        byte[] token = {1, 0, -1};
        pair("invoke", () -> startGpsInvokeRequestNative(token), () -> endGpsInvokeRequestNative());
        pair("monitor", () -> startGpsTxmonInvokeRequestNative("gate"), () -> endGpsInvokeRequestNative());
        pair("receive", () -> startGpsReceiveRequestNative(token), () -> completeGpsReceiveRequestNative(token));
        pair("receive2", () -> startGpsReceiveRequest2Native("text"), () -> completeGpsReceiveRequest2Native("text"));
    }

    private static void monitors() {
        pair("heap", () -> heapAllocationStartNative(7, 35, "Item"), () -> heapAllocationEndNative(7, 35, "Item"));
        String[] names = {"acquisition", "contention", "release"};
        for (int i = 0; i < names.length; i++) {
            byte begin = (byte) (2 * i + 1);
            pair(names[i], () -> monitor(begin), () -> monitor((byte) (begin + 1)));
        }
    }

    private static void monitor(byte kind) {
        appendLockAnalysisEventNative(kind, "Cart", 7, (byte) 3, "pay", "bank", 8, -1);
    }

    private static void portal() {
        byte method = 9;
        pair("page", () -> startPortalPageRequestNative("home", "shop", "http://p", "ann"),
                () -> endPortalPageRequestNative("home"));
        pair("portlet", () -> startPortletRequestNative("news", "News", "http://n", "bob"),
                () -> endPortletRequestNative("news"));
        pair("authentication", () -> startPortalAuthenticationRequestNative(method),
                () -> endPortalAuthenticationRequestNative());
        pair("authorization", () -> startPortalAuthorizationRequestNative(method),
                () -> endPortalAuthorizationRequestNative());
        pair("model", () -> startPortalModelBuildingRequestNative(method), () -> endPortalModelBuildingRequestNative());
        pair("loading", () -> startPortalPageLoadingRequestNative(method), () -> endPortalPageLoadingRequestNative());
        pair("rendering", () -> startPortalPageRenderingRequestNative(method),
                () -> endPortalPageRenderingRequestNative());
        pair("action", () -> startPortalActionRequestNative(method), () -> endPortalActionRequestNative());
        pair("gateway", () -> startGatewayServletRequestNative(), () -> end502GatewayServletRequestNative("last"));
    }

    private static void singles() {
        WORDS.put("exception", () -> sendExceptionNative("text", "Thrower", "run", "at Thrower.run"));
        WORDS.put("gwx", () -> sendGWXRecordNative("gate", "server", "program", 1L << 33, -1, 12));
        WORDS.put("dropped", () -> sendDroppedEventRecordNative());
        WORDS.put("trace", () -> issueTraceRequestNative());
        WORDS.put("status", () -> setPSStatusEventNative("well"));
        WORDS.put("sampling", () -> setSamplingRatesNative(new int[] {1, 2, 3, 4, 5}, 1));
        WORDS.put("samplingShort", () -> setSamplingRatesNative(new int[] {9}, 2));
        WORDS.put("samplingNull", () -> setSamplingRatesNative(null, 1));
        WORDS.put("xqi", () -> xqi(new byte[] {3, -1}, new int[] {4, 5}, new long[] {6, 7}, 2));
        WORDS.put("xqiLonger", () -> xqi(new byte[] {3}, new int[] {4, 9}, new long[] {6, 9}, 1));
        WORDS.put("xqiOtherLength", () -> xqi(new byte[4], new int[4], new long[4], 3));
        WORDS.put("xqiShortCounts", () -> xqi(new byte[4], new int[3], new long[4], 4));
        WORDS.put("xqiShortTimes", () -> xqi(new byte[4], new int[4], new long[3], 4));
        WORDS.put("xqiEmpty", () -> xqi(new byte[0], new int[0], new long[0], 0));
        WORDS.put("xqiNegative", () -> xqi(new byte[1], new int[1], new long[1], -1));
        WORDS.put("xqiNull", () -> xqi(null, new int[1], new long[1], 1));
        WORDS.put("xqiNullCounts", () -> xqi(new byte[1], null, new long[1], 1));
        WORDS.put("xqiNullTimes", () -> xqi(new byte[1], new int[1], null, 1));
    }

    private static void xqi(byte[] types, int[] counts, long[] times, int length) {
        sendXQIRecordNative("manager", "orders", 77, types, counts, times, length);
    }
}
