package am.test.families;

import com.qel.morvex.norak.dc.eventagent.EventListener;
import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;

/** A listener that refuses one type of event, or throws what the listener loop does not catch. */
public final class Veto implements EventListener {
    private static Veto installed;

    private final int refused;
    private final boolean failing;

    private Veto(int refused, boolean failing) {
        this.refused = refused;
        this.failing = failing;
    }

    public static void install(int refused, boolean failing) {
        installed = new Veto(refused, failing);
        NativeEventAgentImpl.addListener(installed);
        NativeEventAgentImpl.enableEntryExitTraceNative();
    }

    /** Takes the listener away but leaves the asking on. */
    public static void remove() {
        NativeEventAgentImpl.removeListener(installed);
    }

    @Override
    public boolean onEvent(int eventType) {
        if (failing) {
            throw new StackOverflowError("the listener fails");
        }
        return eventType != refused;
    }
}
