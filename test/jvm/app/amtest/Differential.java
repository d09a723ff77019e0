package amtest;

import static com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl.*;
import static com.qel.morvex.norak.dc.eventagent.PortalNativeEventAgentImpl.*;

import com.qel.morvex.norak.dc.eventagent.BeanRequest;
import com.qel.morvex.norak.toolkit.ai.gccollector.GCEventNativeAgent;
import com.zykora.command.MethodLevelModule;
import com.zykora.jdbc.ZykoraStatement;
import com.zykora.probe.ProbeContextPersisterProxy;
import com.zykora.probe.ProbeController;
import com.zykora.probe.l3trace.BcmRuntime;
import java.io.IOException;
import java.nio.ByteBuffer;
import java.nio.file.Files;
import java.nio.file.Path;
import java.util.ArrayDeque;
import java.util.ArrayList;
import java.util.Arrays;
import java.util.List;
import java.util.Random;
import java.util.function.Consumer;
import java.util.function.IntConsumer;
import oracle.jdbc.driver.OracleStatement;

/**
 * Calls the natives of requests at random, and says beforehand what a receiver must get for it.
 *
 * <pre>
 *   amtest.Differential CALLS SEED URL_LIMIT SQL_LIMIT YES|NO EXPECTED     calls, with nested requests suppressed or not
 *   amtest.Differential compare CAPTURE EXPECTED                          holds a captured stream against that, byte by byte
 * </pre>
 */
public final class Differential {
    private static final int MOST_QUEUED = 2000;
    private static final String[] TEXTS = {null, "", "a", "/shop/cart", "select * from item where id = ?",
        "JSP_CANCEL_REQUEST", "JSP_CANCEL_REQUESTED", "Aa", "BB", "\0", "x\0y", "Z\u00fcrich", "\u6f22\u5b57",
        "\ud83d\ude00", "\ud83d", "\ude00x", "\u07ff\u0800\uffff", "a".repeat(300), "\u00e9".repeat(150),
        "\u6f22".repeat(100), "x".repeat(70000)};
    private static final char[] LETTERS = {'a', 'z', '\0', '\u007f', '\u0080', '\u00e9', '\u07ff', '\u0800', '\u6f22',
        '\ud83d', '\ude00', '\uffff'};

    private static final int[] HUGE = new int[1000000];
    private static final byte[] NO_BEAN = {0, 6, 0, 0, 0, 0, 0, 0};

    private final int[] rates = new int[4];
    private String page = "PageNameUnknown";
    private final List<Runnable> calls = new ArrayList<>();
    private final Random random;
    private final ExpectedStream expected;
    private final ZykoraStatement wrapper = new ZykoraStatement();
    private final OracleStatement driver = new OracleStatement();

    private Differential(long seed, ExpectedStream expected) {
        this.random = new Random(seed);
        this.expected = expected;
        requests();
        resources();
        queues();
        components();
        correlation();
        monitors();
        portal();
        methods();
        classes();
        singles();
    }

    public static void main(String[] args) throws Exception {
        if (args[0].equals("compare")) {
            System.out.println(compare(Path.of(args[1]), Path.of(args[2])));
            return;
        }
        while (!ProbeController.isNativeProbeEnabled()) {
            Thread.sleep(10);
        }
        int suppressCollections = 4;
        ProbeContextPersisterProxy.synchOutProbeContext(new int[] {suppressCollections}, new int[] {1}, 1);
        try (ExpectedStream expected = new ExpectedStream(args[5], args[4].equals("YES"), Integer.parseInt(args[2]),
                Integer.parseInt(args[3]))) {
            new Differential(Long.parseLong(args[1]), expected).run(Integer.parseInt(args[0]));
        }
        System.out.println("over");
        System.exit(3);
    }

    /** On this thread. The level changes at each tenth, when everything has been written at the old one. */
    private void run(int count) throws InterruptedException {
        expected.thread = getEnvNative();
        for (int call = 0; call < count; call++) {
            int chosen = random.nextInt(calls.size());
            expected.from(call + "/" + chosen);
            calls.get(chosen).run();
            if (call % (count / 10) == 0) {
                awaitQueued(0);
                expected.level = 3 - expected.level;
                ProbeController.setModLevel(1000 + expected.level);
            }
            awaitQueued(MOST_QUEUED);
        }
        awaitQueued(0);
    }

    private static void awaitQueued(int most) throws InterruptedException {
        while (getNumberOfEventsNative() > most) {
            Thread.sleep(1);
        }
    }

    // ---- what is drawn

    /** One of a few objects again and again, an equal one, or one that was never there. */
    private String text() {
        String usual = TEXTS[random.nextInt(TEXTS.length)];
        switch (random.nextInt(4)) {
            case 0:
                return usual == null ? null : new String(usual);
            case 1:
                StringBuilder drawn = new StringBuilder();
                for (int left = random.nextInt(60); left > 0; left--) {
                    drawn.append(LETTERS[random.nextInt(LETTERS.length)]);
                }
                return drawn.toString();
            default:
                return usual;
        }
    }

    /** Of those without a limit but that of a length on the wire; few beyond that, as each is 65,535 bytes. */
    private String whole() {
        String drawn = text();
        if (drawn == null || drawn.length() <= 1000) {
            return drawn;
        }
        return random.nextInt(30) > 0 ? "long" : "x".repeat(random.nextInt(3)) + "\u6f22".repeat(22000);
    }

    private byte[] token() {
        byte[] token = new byte[random.nextInt(50) == 0 ? 70000 : random.nextInt(40)];
        random.nextBytes(token);
        return random.nextInt(5) == 0 ? null : token;
    }

    private Object[] values() {
        if (random.nextInt(20) == 0) {
            return null;
        }
        Object[] values = new Object[random.nextInt(50) == 0 ? 300 : 1 + random.nextInt(4)];
        for (int i = 0; i < values.length; i++) {
            values[i] = random.nextInt(5) == 0 ? Integer.valueOf(i) : whole();
        }
        return values;
    }

    // ---- calls: each tells the expected stream first

    private interface Record {
        void expect(int type, String form, Object... values);
    }

    private void requests() {
        calls.add(() -> {
            String name = text();
            String url = random.nextInt(3) == 0 ? name : text();
            String application = random.nextInt(2) == 0 ? url : text();
            String user = whole();
            expected.http(name, application, url, user);
            startHttpRequestNative(0, name, application, url, user);
        });
        calls.add(() -> {
            String name = text();
            expected.endHttp(5, name);
            finishHttpRequestNative(name);
        });
        calls.add(() -> {
            String name = text();
            expected.endHttp(50, name);
            errorHttpRequestNative(name, text(), text());
        });
        for (int i = 0; i < 2; i++) { // most of what servers report
            calls.add(() -> {
                String sql = text();
                String source = whole();
                expected.statement(true, sql, source);
                if (random.nextBoolean()) {
                    beginSQLRequestNative(sql, source);
                } else {
                    wrapper.beginSQLRequest(sql, source);
                }
            });
            calls.add(() -> {
                expected.endStatement(true);
                if (random.nextBoolean()) {
                    endSQLRequestNative(text(), text());
                } else {
                    wrapper.endSQLRequest(text(), text());
                }
            });
        }
        calls.add(() -> {
            String sql = text();
            String source = whole();
            expected.statement(false, sql, source);
            driver.beginSQLRequest(sql, source);
        });
        calls.add(() -> {
            expected.endStatement(false);
            driver.endSQLRequest(text(), text());
        });
    }

    /** Draws four texts, of which the record tells those at `told`, in that order. */
    private void family(Record begin, int type, String form, int[] told, Consumer<String[]> call) {
        calls.add(() -> {
            String[] texts = {whole(), whole(), whole(), whole()};
            begin.expect(type, form, Arrays.stream(told).mapToObj(i -> (Object) texts[i]).toArray());
            call.accept(texts);
        });
    }

    private void end(IntConsumer end, int type, Consumer<String[]> call) {
        calls.add(() -> {
            end.accept(type);
            call.accept(new String[] {text(), text(), text()});
        });
    }

    private void resources() {
        family(expected::nested, 37, "psl", new int[] {1}, t -> beginJCARequestNative(t[0], t[1]));
        end(expected::endNested, 38, t -> endJCARequestNative(t[0], t[1]));
        family(expected::nested, 33, "plss", new int[] {1, 0}, t -> beginJNDIRequestNative(t[0], t[1]));
        end(expected::endNested, 34, t -> endJNDIRequestNative(t[0], t[1]));
        family(expected::plain, 35, "plss", new int[] {1, 0}, t -> beginMailRequestNative(t[0], t[1]));
        end(type -> expected.endPlain(type, "pl"), 36, t -> endMailRequestNative(t[0], t[1]));
        family(expected::inner, 147, "psssl", new int[] {0, 1, 2}, t -> beginJDORequestNative(t[0], t[1], t[2]));
        end(expected::endInner, 148, t -> endJDORequestNative(t[0], t[1], t[2]));
        for (int action = 1; action <= 5; action++) {
            messages(action, action == 5 ? 3 : action);
        }
    }

    /** A type that there is not counts as 3. */
    private void messages(int given, int action) {
        family(expected::nested, 23 + 2 * action, action <= 2 ? "psssl" : "pssl",
                action <= 2 ? new int[] {1, 0, 2} : new int[] {1, 0}, t -> beginJMSRequestNative(given, t[0], t[1], t[2]));
        end(expected::endNested, 24 + 2 * action, t -> endJMSRequestNative(given, t[0], t[1], t[2]));
    }

    private void queues() {
        calls.add(() -> {
            String manager = whole();
            String queue = whole();
            int action = random.nextInt(9) == 0 ? random.nextInt() : random.nextInt(16);
            expected.plain(110, "pss1l", queue, manager, action);
            beginXQRequestNative(manager, queue, action);
        });
        calls.add(() -> {
            String queue = whole();
            int action = random.nextInt(9) == 0 ? random.nextInt() : random.nextInt(16);
            byte[] token = token();
            boolean send = random.nextInt(3) > 0;
            expected.endPlain(111, "p1l", action);
            if (send) {
                expected.queuedToken(action, queue, token);
            }
            endXQRequestNative(text(), queue, action, token, send);
        });
    }

    private void components() {
        calls.add(() -> {
            byte[] bean = BeanRequest.compose(whole(), whole(), whole());
            byte[] given = random.nextInt(20) == 0 ? null : Arrays.copyOf(bean, bean.length + random.nextInt(3));
            int count = bean.length + (random.nextInt(4) == 0 ? random.nextInt(9) - 4 : 0);
            int told = bean.length - 2 + random.nextInt(9) / 8;
            if (given != null) {
                ByteBuffer.wrap(given).putShort((short) (told + count - bean.length));
            }
            boolean right = given != null && count == bean.length && told == count - 2;
            expected.any(6, "prl", right ? bean : NO_BEAN);
            beginEJBRequestNative(given, count);
        });
        calls.add(() -> {
            expected.endAny(7, "pl");
            endEJBRequestNative();
        });
        calls.add(() -> {
            Object[] values = values();
            int id = random.nextInt(300);
            int count = values == null ? 3 : values.length + random.nextInt(3) - 1;
            if (values != null && count != 0) {
                Object[] context = contextOf(id, count, values, " ");
                expected.any(99, "1p1" + "s".repeat(context.length - 2) + "l", context);
            }
            genericStartEventNative(id, count, values);
        });
        calls.add(() -> {
            int id = random.nextInt(300);
            expected.endAny(100, "1pl", id);
            genericStopEventNative(id);
        });
        calls.add(() -> {
            Object[] values = values();
            int id = random.nextInt(300);
            int count = random.nextInt(6) - 1;
            Object[] context = contextOf(id, count, values, "");
            expected.record(108, "1t1" + "s".repeat(context.length - 2) + "l", context);
            genericExceptionEventNative(id, count, values);
        });
        family(expected::counted, 150, "pszsl", new int[] {0, 1}, t -> startIIOPClientRequestNative(t[0], t[1]));
        end(expected::endCounted, 151, t -> finishIIOPClientRequestNative(t[0], t[1]));
        family(expected::counted, 152, "pszsl", new int[] {0, 1}, t -> startIIOPServerRequestNative(t[0], t[1]));
        end(expected::endCounted, 153, t -> finishIIOPServerRequestNative(t[0], t[1]));
        int[] three = {0, 1, 2};
        family(expected::counted, 199, "psssl", three, t -> wsHelperClientRequestNative(t[0], t[1], t[2]));
        end(expected::endCounted, 200, t -> wsHelperClientResponseNative(t[0], t[1], t[2]));
        family(expected::counted, 201, "psssl", three, t -> wsHelperProviderRequestNative(t[0], t[1], t[2]));
        end(expected::endCounted, 202, t -> wsHelperProviderResponseNative(t[0], t[1], t[2]));
        family(this::fault, 203, "psssl", three, t -> wsHelperClientFaultNative(t[0], t[1], t[2]));
        family(this::fault, 203, "psssl", three, t -> wsHelperProviderFaultNative(t[0], t[1], t[2]));
    }

    private void fault(int type, String form, Object... values) {
        expected.counted(type, form, values);
        expected.endCounted(type + 1);
    }

    /** Those that are there, 255 at most. What is no string counts as missing. */
    private static Object[] contextOf(int id, int wanted, Object[] values, String missing) {
        int count = values == null || wanted < 0 ? 0 : Math.min(255, Math.min(wanted, values.length));
        Object[] all = new Object[count + 2];
        all[0] = id;
        all[1] = count;
        for (int i = 0; i < count; i++) {
            all[i + 2] = values[i] instanceof String ? values[i] : missing;
        }
        return all;
    }

    private void correlation() {
        calls.add(() -> {
            byte[] token = token();
            expected.counted(51, "pbl", ExpectedStream.sendable(token));
            startGpsInvokeRequestNative(token);
        });
        family((type, form, name) -> expected.counted(type, form, name[0], new byte[0]), 154, "psbl", new int[] {0},
                t -> startGpsTxmonInvokeRequestNative(t[0]));
        end(expected::endCounted, 52, t -> endGpsInvokeRequestNative());
        calls.add(() -> {
            byte[] token = token();
            expected.counted(53, "pbl", ExpectedStream.sendable(token));
            startGpsReceiveRequestNative(token);
        });
        end(expected::endCounted, 54, t -> completeGpsReceiveRequestNative(null));
        family(expected::counted, 53, "pul", new int[] {0}, t -> startGpsReceiveRequest2Native(t[0]));
        end(expected::endCounted, 54, t -> completeGpsReceiveRequest2Native(t[0]));
    }

    private void monitors() {
        calls.add(() -> {
            int method = random.nextInt();
            String type = whole();
            expected.plain(124, "p4s4l", method, type, 0);
            heapAllocationStartNative(method, random.nextInt(), type);
        });
        end(type -> expected.endPlain(type, "pl"), 125, t -> heapAllocationEndNative(1, 2, t[0]));
        for (byte kind = 0; kind < 8; kind++) {
            monitor(kind);
        }
    }

    /** Odd kinds begin. A thread that waits, and is unknown, is taken for the caller. */
    private void monitor(byte kind) {
        boolean known = kind >= 1 && kind <= 6;
        family((type, form, t) -> {
            if (known && kind % 2 == 0) {
                expected.endPlain(type, "pl");
            } else if (kind == 3) {
                expected.plain(type, form, 7, t[0], 255, t[1], t[2], 8);
            } else if (known) {
                expected.plain(type, form, 7, t[0]);
            }
        }, 117 + kind, kind == 3 ? "p4s1ss4l" : "p4sl", new int[] {0, 1, 2}, t -> {
            boolean inside = getNumPendingRequests() != 0;
            int recorded = appendLockAnalysisEventNative(kind, t[0], 7, (byte) -1, t[1], t[2], 8, -1);
            if (recorded != (known && inside ? 1 : 0)) {
                throw new IllegalStateException("kind " + kind + " gives " + recorded);
            }
        });
    }

    private void phase(int type, Consumer<Byte> start, Runnable end) {
        calls.add(() -> {
            byte method = (byte) random.nextInt();
            expected.counted(type, "p1l", method);
            start.accept(method);
        });
        end(expected::endCounted, type + 1, t -> end.run());
    }

    private void portal() {
        int[] all = {0, 1, 2, 3};
        family(expected::counted, 65, "puuusl", all, t -> startPortalPageRequestNative(t[0], t[1], t[2], t[3]));
        end(expected::endCounted, 66, t -> endPortalPageRequestNative(t[0]));
        family(expected::counted, 67, "puuusl", all, t -> startPortletRequestNative(t[0], t[1], t[2], t[3]));
        end(expected::endCounted, 68, t -> endPortletRequestNative(t[0]));
        phase(130, id -> startPortalAuthenticationRequestNative(id), () -> endPortalAuthenticationRequestNative());
        phase(132, id -> startPortalAuthorizationRequestNative(id), () -> endPortalAuthorizationRequestNative());
        phase(134, id -> startPortalModelBuildingRequestNative(id), () -> endPortalModelBuildingRequestNative());
        phase(136, id -> startPortalPageLoadingRequestNative(id), () -> endPortalPageLoadingRequestNative());
        phase(138, id -> startPortalActionRequestNative(id), () -> endPortalActionRequestNative());
        phase(142, id -> startPortalPageRenderingRequestNative(id), () -> endPortalPageRenderingRequestNative());
        calls.add(() -> {
            expected.counted(155, "psl", "PageNameUnknown");
            startGatewayServletRequestNative();
        });
        calls.add(() -> {
            page = whole();
            page = page == null ? "" : page;
            processPortalPageNameNative(page);
        });
        end(type -> expected.endCounted(type, "psl", page), 156, t -> endGatewayServletRequestNative());
        calls.add(() -> {
            String name = whole();
            expected.endCounted(156, "psl", name);
            end502GatewayServletRequestNative(name);
        });
        figures();
    }

    private void figures() {
        figure(61, count -> sendLoginDataNative(count, -count));
        figure(62, count -> sendAccessControlDataNative(count, -count));
        figure(46, count -> sendGatewayServletDataNative(count, -count));
        figure(47, count -> sendModelBuildingDataNative(count, -count));
        figure(48, count -> sendPageLoadingDataNative(count, -count));
        calls.add(() -> {
            expected.record(63, "4848484848", 1, 2, 3, 4, 5, 6, 7, 8, 9, Long.MIN_VALUE);
            sendCredentialVaultDataNative(1, 2, 3, 4, 5, 6, 7, 8, 9, Long.MIN_VALUE);
        });
        calls.add(() -> {
            expected.record(64, "48484848", 1, 2, 3, 4, 5, 6, -7, -8);
            sendContentAccessDataNative(1, 2, 3, 4, 5, 6, -7, -8);
        });
    }

    private void figure(int type, IntConsumer send) {
        calls.add(() -> {
            int count = random.nextInt();
            expected.record(type, "48", count, (long) -count);
            send.accept(count);
        });
    }

    private void methods() {
        calls.add(() -> {
            int method = random.nextInt();
            int exit = random.nextInt(3);
            expected.record(exit == 0 ? 2 : 3, "t4k", method);
            boolean runtime = random.nextBoolean();
            check(runtime ? BcmRuntime.appendL3Event((byte) exit, method) : appendL3EventNative((byte) exit, method));
        });
        calls.add(() -> {
            expected.record(2, "t4k", 5);
            expected.record(3, "t4k", 6);
            MethodLevelModule.beforeMethod(5);
            MethodLevelModule.afterMethod(6);
        });
        calls.add(() -> {
            long cpu = random.nextLong();
            expected.record(2, "t4448", 7, 1700000000, 999000, cpu);
            check(appendPendingEntryEventNative(7, cpu, 1700000000, 999000) == 1);
        });
    }

    private static void check(boolean taken) {
        if (!taken) {
            throw new IllegalStateException("refused");
        }
    }

    private String brief() {
        String drawn = text();
        return drawn == null || drawn.length() <= 1000 ? drawn : "long";
    }

    private String[] briefs(int count) {
        String[] texts = new String[count];
        Arrays.setAll(texts, i -> brief());
        return texts;
    }

    private void expectClass(int sequence, String name, int[] ids, String[] names, String[] signatures) {
        Object[] fields = new Object[3 + 3 * ids.length];
        System.arraycopy(new Object[] {sequence, name, ids.length}, 0, fields, 0, 3);
        for (int i = 0; i < ids.length; i++) {
            System.arraycopy(new Object[] {ids[i], names[i], signatures[i]}, 0, fields, 3 + 3 * i, 3);
        }
        expected.record(1, "4s4" + "4ss".repeat(ids.length), fields);
    }

    private void expectUnload(int sequence, int id, int[] ids) {
        Object[] fields = new Object[3 + ids.length];
        System.arraycopy(new Object[] {sequence, id, ids.length}, 0, fields, 0, 3);
        Arrays.setAll(fields, i -> i < 3 ? fields[i] : (Object) ids[i - 3]);
        expected.record(12, "444" + "4".repeat(ids.length), fields);
    }

    private record Loaded(String name, int sequence, int[] ids) {
    }

    /** Some of the registered classes are unloaded again, once or twice; the first one of all cannot be. */
    private void classes() {
        List<Loaded> loaded = new ArrayList<>();
        int[] sequence = {0};
        calls.add(() -> {
            String name = "shop/C" + sequence[0] + (random.nextInt(50) == 0 ? whole() : "");
            int[] ids = random.ints(random.nextInt(6)).toArray();
            String[] names = briefs(ids.length);
            String[] signatures = briefs(ids.length);
            loaded.add(new Loaded(name, ++sequence[0], ids));
            expectClass(sequence[0], name, ids, names, signatures);
            MethodLevelModule.initializeClass(name, ids, names, signatures);
            MethodLevelModule.initializeClass(name, ids, names, new String[ids.length + 1]);
        });
        calls.add(() -> {
            int chosen = random.nextInt(loaded.size() + 1);
            MethodLevelModule.unloadClass(random.nextBoolean() ? null : "shop/never loaded");
            if (chosen == 0 || chosen == loaded.size()) {
                MethodLevelModule.unloadClass(loaded.isEmpty() ? "" : loaded.get(0).name);
                return;
            }
            Loaded gone = loaded.remove(chosen);
            expectUnload(gone.sequence, 0, gone.ids);
            MethodLevelModule.unloadClass(gone.name);
            MethodLevelModule.unloadClass(gone.name);
        });
        calls.add(() -> {
            int number = random.nextInt();
            int[] ids = random.ints(random.nextInt(200) == 0 ? 3000 : random.nextInt(4)).toArray();
            String[] names = briefs(ids.length);
            String[] signatures = briefs(ids.length);
            expectClass(number, "shop/D", ids, names, signatures);
            expectUnload(number, number, ids);
            check(BcmRuntime.sendClassEventNative(number, "shop/D", ids, names, signatures)
                    && !sendClassEventNative(number, null, ids, names, signatures)
                    && !sendClassEventNative(number, "shop/D", ids, names, null)
                    && !sendClassUnloadEventNative(number, "shop/huge", HUGE)
                    && sendClassUnloadEventNative(number, "shop/D", ids)
                    && !BcmRuntime.sendClassUnloadEventNative(number, "shop/D", null));
        });
    }

    private void singles() {
        family(expected::record, 45, "ssss", new int[] {0, 1, 2, 3}, t -> sendExceptionNative(t[0], t[1], t[2], t[3]));
        calls.add(() -> {
            String[] names = {whole(), whole(), whole()};
            long time = random.nextLong();
            int count = random.nextInt();
            long average = random.nextLong();
            expected.record(40, "sss848", names[0], names[1], names[2], time, count, average);
            sendGWXRecordNative(names[0], names[1], names[2], time, count, average);
        });
        calls.add(() -> {
            String manager = whole();
            String queue = whole();
            byte[] types = new byte[random.nextInt(4)];
            random.nextBytes(types);
            int[] counts = random.nextInt(5) == 0 ? null : random.ints(types.length).toArray();
            long[] averages = random.nextInt(5) == 0 ? null : random.longs(types.length).toArray();
            int told = types.length + (random.nextInt(5) == 0 ? 1 : 0);
            if (counts != null && averages != null && told == types.length && told > 0) {
                ByteBuffer figures = ByteBuffer.allocate(13 * told);
                for (int i = 0; i < told; i++) {
                    figures.put(types[i]).putInt(counts[i]).putLong(averages[i]);
                }
                expected.record(41, "ss84r", manager, queue, 77, told, figures.array());
            }
            sendXQIRecordNative(manager, queue, 77, types, counts, averages, told);
        });
        calls.add(() -> {
            expected.record(11, "t444444", 0, 0, 0, 0, 0, 0);
            sendDroppedEventRecordNative();
        });
        calls.add(() -> {
            expected.record(8, "csl", "system_trace");
            issueTraceRequestNative();
        });
        calls.add(() -> {
            long from = random.nextInt(Integer.MAX_VALUE);
            long objects = random.nextLong();
            expected.record(13, "x44", from / 1000, from % 1000 * 1000);
            expected.record(14, "x44888", (from + 7) / 1000, (from + 7) % 1000 * 1000, objects, -1, Long.MIN_VALUE);
            check(GCEventNativeAgent.putGCCycleToQueueNative(from, from + 7, objects, -1, Long.MIN_VALUE) == 1);
        });
        calls.add(() -> {
            String status = whole();
            expected.record(44, "s", status);
            setPSStatusEventNative(status);
        });
        calls.add(() -> {
            int[] levels = random.nextInt(5) == 0 ? null : random.ints(random.nextInt(7)).toArray();
            int useDefault = random.nextInt(4) - 1;
            if (levels != null) {
                System.arraycopy(levels, 0, rates, 0, Math.min(4, levels.length));
                expected.record(39, "44441", rates[0], rates[1], rates[2], rates[3], useDefault == 1 ? 1 : 0);
            }
            setSamplingRatesNative(levels, useDefault);
        });
    }

    // ---- comparison

    /** Two orders: that of the thread's records, and that of those without a thread, which go another way. */
    private static String compare(Path capture, Path expectations) throws IOException {
        ArrayDeque<String> own = new ArrayDeque<>();
        ArrayDeque<String> apart = new ArrayDeque<>();
        for (String line : Files.readAllLines(expectations)) {
            (line.matches("(27|2c|0d|0e).*") ? apart : own).add(line);
        }
        int wanted = own.size() + apart.size();
        ByteBuffer stream = ByteBuffer.wrap(Files.readAllBytes(capture));
        skipInitialBlock(stream);
        long[] clocks = {0, 0};
        while (stream.hasRemaining()) {
            stream.get();
            int count = stream.getInt();
            stream.getShort();
            for (; count > 0; count--) {
                if (matches(stream, own.peek())) {
                    String line = own.remove();
                    checkClocks(stream, line, clocks);
                    stream.position(stream.position() + bytesOf(line));
                } else if (matches(stream, apart.peek())) {
                    stream.position(stream.position() + bytesOf(apart.remove()));
                } else if (matches(stream, "2c00007f7f ")) {
                    stream.position(stream.position() + 5); // the sign of life of a connection
                } else {
                    byte[] found = new byte[Math.min(400, stream.remaining())];
                    stream.get(found);
                    throw new IllegalStateException("expected " + own.peek() + "\nor       " + apart.peek() + "\nfound    "
                            + ExpectedStream.hex(found));
                }
            }
        }
        if (!own.isEmpty() || !apart.isEmpty()) {
            throw new IllegalStateException("missing: " + own.size() + " of the thread, first " + own.peek() + "; "
                    + apart.size() + " others");
        }
        return wanted + " records, " + stream.capacity() + " bytes";
    }

    private static void skipInitialBlock(ByteBuffer stream) {
        stream.position(17 + 5);
        for (int text = 0; text < 4; text++) {
            int length = stream.getShort() & 0xFFFF;
            stream.position(stream.position() + length);
        }
        stream.position(stream.position() + 4 + 2);
    }

    private static int bytesOf(String line) {
        return line.indexOf(' ') / 2;
    }

    private static boolean matches(ByteBuffer stream, String line) {
        if (line == null || stream.remaining() < bytesOf(line)) {
            return false;
        }
        for (int i = 0; i < bytesOf(line); i++) {
            char high = line.charAt(2 * i);
            if (high != '.' && (Character.digit(high, 16) << 4 | Character.digit(line.charAt(2 * i + 1), 16))
                    != (stream.get(stream.position() + i) & 0xFF)) {
                return false;
            }
        }
        return true;
    }

    /**
     * Neither the wall clock of a record, in microseconds, nor its CPU clock may be before the last one. Beans of one
     * millisecond share the thread's latest CPU time, which a page sets back to 0 even if it is suppressed.
     */
    private static void checkClocks(ByteBuffer stream, String line, long[] last) {
        int digits = line.lastIndexOf('.') + 1 - line.indexOf('.');
        if (digits < 16) {
            return;
        }
        int at = stream.position() + line.indexOf('.') / 2;
        long micros = (stream.getInt(at) & 0xFFFFFFFFL) * 1_000_000 + stream.getInt(at + 4);
        long cpu = digits == 32 ? stream.getLong(at + 8) : 0;
        boolean without = digits == 16 || cpu == 0 && (line.startsWith("06") || line.startsWith("07"));
        if (micros < last[0] || micros % 1000 != 0 || !without && cpu < Math.max(1, last[1])) {
            throw new IllegalStateException("clocks " + micros + ", " + cpu + " after " + Arrays.toString(last) + ": "
                    + line);
        }
        last[0] = micros;
        last[1] = Math.max(cpu, last[1]);
    }
}
