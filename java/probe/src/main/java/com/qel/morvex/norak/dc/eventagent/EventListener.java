package com.qel.morvex.norak.dc.eventagent;

/**
 * Asked about every request event before it is queued, on the thread that makes it. What a listener itself does in
 * monitored code is recorded without a question.
 */
public interface EventListener {
    /**
     * @param eventType the number of the event's type
     * @return false to drop the event
     */
    boolean onEvent(int eventType);
}
