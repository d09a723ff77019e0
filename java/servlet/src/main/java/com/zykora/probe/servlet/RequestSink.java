package com.zykora.probe.servlet;

import com.qel.morvex.norak.dc.eventagent.NativeEventAgentImpl;

/** Where requests are reported: begin and end on one thread, one {@code finish} or {@code error} for a start. */
interface RequestSink {
    void start(HttpCall call);

    void finish(HttpCall call);

    /** @param text what went wrong, such as "404 Not Found" or the name of an exception's class */
    void error(HttpCall call, String text);

    /** The collector itself. */
    final class Natives implements RequestSink {
        @Override
        public void start(HttpCall call) {
            NativeEventAgentImpl.startHttpRequestNative(0, call.name, call.application, call.url, call.user);
        }

        @Override
        public void finish(HttpCall call) {
            NativeEventAgentImpl.finishHttpRequestNative(call.name);
        }

        @Override
        public void error(HttpCall call, String text) {
            NativeEventAgentImpl.errorHttpRequestNative(call.name, call.application, text);
        }
    }
}
