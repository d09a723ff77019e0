package com.qel.morvex.norak.toolkit.ai.bcm.bootstrap;

/**
 * The configuration keys that the native half reads. Any of them may be given as a system property; the value
 * then stands below those of the properties files.
 */
final class PropertyIndex {
    static final String[] KEYS = {
        "DSRV.bootclassname",
        "am.socket.bindip",
        "dc.operation.mode",
        "dc.turbomode.enabled",
        "ea.popevent.size",
        "ea.thread.priority",
        "ea.turbo.priority",
        "ea.turbo.sleep",
        "eventagent.no.sleep",
        "eventagent.pool.size",
        "gps.cushion",
        "internal.counter.resettime",
        "internal.disable.nestedrequests",
        "internal.disableL3",
        "internal.memory.accept.threshold",
        "internal.memory.limit",
        "internal.probe.event.packet.size",
        "internal.probe.event.queue.size.limit",
        "internal.probe.javacoredir",
        "internal.probe.publishing.frequency",
        "internal.sql.limit",
        "internal.url.limit",
        "internal.use.method.monitors",
        "internal.use.method.monitors.disable",
        "log.statistics",
        "log.statistics.frequency",
        "method.hash.cleanup",
        "method.hash.cleanupinterval",
        "na.popbuffer.size",
        "na.reset.counter",
        "na.thread.priority",
        "na.turbo.priority",
        "na.turbo.sleep",
        "networkagent.buffer.limit",
        "networkagent.no.sleep",
        "networkagent.pool.size",
        "networkagent.ps.reconnect.frequency",
        "networkagent.publish.frequency",
        "networkagent.socket.nagleoff",
        "networkagent.socket.port",
        "networkagent.socket.resettime",
        "networkagent.socket.timeout",
        "networkagent.useclient.bindaddress",
        "turbo.mem.llimit",
        "turbo.mem.ulimit",
        "turbomode.allownew",
    };

    private PropertyIndex() {
    }
}
