package com.qel.morvex.norak.dc;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.qel.morvex.norak.toolkit.ai.bcm.utility.CcTools;
import com.zykora.probe.RestoredProperties;
import org.junit.jupiter.api.Test;
import org.junit.jupiter.api.extension.ExtendWith;

/** What the native half calls while it runs. */
@ExtendWith(RestoredProperties.class)
class CallBackTest {
    @Test
    void anyListenerMayDropAnEventAndAFailingOneHasNoSay() {
        assertTrue(NativeEventAgentImpl.notifyListeners(7), "no listener");
        // Without the agent the registration cannot be told to the native half, but it stands.
        assertThrows(LinkageError.class, () -> NativeEventAgentImpl.addListener(type -> {
            throw new IllegalStateException();
        }));
        assertThrows(LinkageError.class, () -> NativeEventAgentImpl.addListener(type -> type != 7));
        assertFalse(NativeEventAgentImpl.notifyListeners(7));
        assertTrue(NativeEventAgentImpl.notifyListeners(8));
    }

    @Test
    void propertyBytesAreNeverNull() {
        System.setProperty("am.test", "value");
        assertArrayEquals("value".getBytes(), CcTools.getPropertyBytes("am.test"));
        for (String unknown : new String[] {null, "", "am.test.unknown"}) {
            assertEquals(0, CcTools.getPropertyBytes(unknown).length);
        }
        System.clearProperty("sun.jnu.encoding");
        assertArrayEquals("value".getBytes(), CcTools.getPropertyBytes("am.test"));
    }
}
