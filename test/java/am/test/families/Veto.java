package am.test.families;

import com.qel.morvex.norak.dc.eventagent.EventListener;
import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;

/** A listener that refuses one type of event, throws what the listener loop does not catch, or is itself monitored. */
public final class Veto implements EventListener {
    private static Veto installed;

    private final int refused;
    private final Runnable meanwhile;

    private Veto(int refused, Runnable meanwhile) {
        this.refused = refused;
        this.meanwhile = meanwhile;
    }

    public static void install(int refused, boolean failing) {
        install(new Veto(refused, failing ? Veto::fail : () -> { }));
    }

    /** It runs a statement whenever it is asked. */
    public static void installMonitored() {
        install(new Veto(-1, () -> Script.run("+sql -sql")));
    }

    private static void install(Veto listener) {
        installed = listener;
        NativeEventAgentImpl.addListener(installed);
        NativeEventAgentImpl.enableEntryExitTraceNative();
    }

    private static void fail() {
        throw new StackOverflowError("the listener fails");
    }

    /** Takes the listener away but leaves the asking on. */
    public static void remove() {
        NativeEventAgentImpl.removeListener(installed);
    }

    @Override
    public boolean onEvent(int eventType) {
        meanwhile.run();
        return eventType != refused;
    }
}
