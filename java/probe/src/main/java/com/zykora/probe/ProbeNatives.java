package com.zykora.probe;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;
import com.qel.morvex.norak.dc.networkagent.NativeNetworkAgentImpl;
import com.qel.morvex.norak.toolkit.ai.management.Base;

/** The native calls of the life cycle, in one place so that the order of calls can be observed. */
class ProbeNatives {
    boolean startService() {
        return ProbeUtils.customServiceStart();
    }

    void startThreadManager() {
        Base.startNativeThreadManager();
    }

    void startProbe() {
        ProbeController.startNativeProbe();
    }

    boolean initializeProbe() {
        return ProbeSystem.initializeProbe();
    }

    boolean isProbeEnabled() {
        return ProbeController.isNativeProbeEnabled();
    }

    void stopProbe() {
        ProbeController.stopNativeProbe();
    }

    void shutDownService() {
        ProbeUtils.customServiceShutDown();
    }

    int eventAgentCount() {
        return NativeEventAgentImpl.getAgentCountNative();
    }

    void runEventAgent(int id) {
        NativeEventAgentImpl.startThreadNative(id);
    }

    int networkAgentCount() {
        return NativeNetworkAgentImpl.getNetAgentCountNative();
    }

    void runNetworkAgent(int id) {
        NativeNetworkAgentImpl.startThreadNative(id);
    }
}
