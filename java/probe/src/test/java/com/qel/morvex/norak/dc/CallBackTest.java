package com.qel.morvex.norak.dc;

import static org.junit.jupiter.api.Assertions.assertArrayEquals;
import static org.junit.jupiter.api.Assertions.assertEquals;
import static org.junit.jupiter.api.Assertions.assertFalse;
import static org.junit.jupiter.api.Assertions.assertThrows;
import static org.junit.jupiter.api.Assertions.assertTrue;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.qel.morvex.norak.dc.networkagent.NativeNetworkAgentImpl;
import com.qel.morvex.norak.dc.networkagent.TraceListener;
import com.qel.morvex.norak.toolkit.ai.bcm.utility.CcTools;
import com.zykora.probe.ProbeSystem;
import com.zykora.probe.RestoredProperties;
import java.util.ArrayList;
import java.util.List;
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
    void tracesReachTheirListener() {
        List<String> seen = new ArrayList<>();
        NativeNetworkAgentImpl.writeTraceEntry(new byte[1]);
        NativeNetworkAgentImpl.setTraceListener(new TraceListener() {
            @Override
            public void record(byte type, int threadId, byte depth, byte[] record) {
                seen.add(type + "/" + threadId + "/" + depth + "/" + record.length);
            }

            @Override
            public void buffer(byte[] data) {
                seen.add("buffer " + data.length);
            }
        });
        NativeNetworkAgentImpl.writeTraceEntry((byte) 208, 5, (byte) 2, new byte[9]);
        NativeNetworkAgentImpl.writeTraceEntry(new byte[4]);
        NativeNetworkAgentImpl.setTraceListener(null);
        assertEquals(List.of("-48/5/2/9", "buffer 4"), seen);
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

    @Test
    void theServerNameCarriesItsProfile() {
        System.setProperty("am.appserver", "shop");
        assertEquals("shop", ProbeSystem.getAppServerName());
        System.setProperty("AM_PROFILENAME", "live");
        assertEquals("0.0.0", ProbeSystem.getAppServerProductVersion());
        for (String version : new String[] {"0.0.0", "5.9", "beta", "v8"}) {
            System.setProperty("appserver.version", version);
            assertEquals("shop", ProbeSystem.getAppServerName(), version);
        }
        for (String version : new String[] {"6.0.0", "10.1.2", "8", "6beta"}) {
            System.setProperty("appserver.version", version);
            assertEquals("shop(live)", ProbeSystem.getAppServerName(), version);
        }
    }
}
