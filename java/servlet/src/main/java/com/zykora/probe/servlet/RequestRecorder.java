package com.zykora.probe.servlet;

import com.zykora.probe.app.AgentLink;

/**
 * Turns the course of a request into reports, for filters of either servlet API. Nothing that goes wrong here
 * reaches the application. Safe for all threads.
 */
final class RequestRecorder {
    private final RequestSink sink;

    /** @param sink null records nothing */
    RequestRecorder(RequestSink sink) {
        this.sink = sink;
    }

    /** Reports to the agent, or to nobody if there is none. */
    static RequestRecorder ofAgent() {
        return new RequestRecorder(AgentLink.isPresent() ? new RequestSink.Natives() : null);
    }

    boolean isActive() {
        return sink != null;
    }

    /** True if the begin was reported: then, and only then, {@link #end} is due on the same thread. */
    boolean begin(HttpCall call) {
        try {
            sink.start(call);
            return true;
        } catch (Throwable unreported) {
            return false;
        }
    }

    /**
     * Reports the one end of a request.
     *
     * @param status the response's status; 400 and above is an error
     * @param failure what the application threw, or null
     */
    void end(HttpCall call, int status, Throwable failure) {
        try {
            if (failure != null) {
                sink.error(call, nameOf(failure));
            } else if (status >= 400) {
                sink.error(call, StatusText.of(status));
            } else {
                sink.finish(call);
            }
        } catch (Throwable unreported) {
            // The response is the application's; an end less is all there is to it.
        }
    }

    /** The servlet API's own exception often only carries the one that tells what happened. */
    private static String nameOf(Throwable failure) {
        Throwable cause = failure.getCause();
        boolean carrier = cause != null && failure.getClass().getSimpleName().endsWith("ServletException");
        return (carrier ? cause : failure).getClass().getName();
    }
}
