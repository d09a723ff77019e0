// Natives of ProbeLogger.
#include "ProbeLgKit.h"
#include "PropertyMgr.h"

#include <jni.h>

#define PROBE_LOGGER(name) Java_com_zykora_probe_log_ProbeLogger_##name

extern "C" {

// Below 20000: the level of the message logger. From 20000 on: `level - 20000` is the level of the module
// tracers but the one of garbage collection; their two finest levels switch the statistics on.
JNIEXPORT void JNICALL PROBE_LOGGER(setNativeProbeLoggingLevel)(JNIEnv *, jclass, jint level) {
    constexpr jint TRACE_BASE = 20000;
    if (level < TRACE_BASE) {
        setLogLevel(msgLogger, level);
        return;
    }
    const jint traceLevel = level - TRACE_BASE;
    for (LgkObject *tracer : {naTracer.get(), eaTracer.get(), caTracer.get(), ccTracer.get()}) {
        setLogLevel(tracer, traceLevel);
    }
    const jint step = traceLevel / 1000;
    setStatisticsEnabled(step == 1 || step == 2 || boolProperty("log.statistics", false));
}

// No file name is kept on this side: always null.
JNIEXPORT jstring JNICALL PROBE_LOGGER(getLogFileName)(JNIEnv *, jclass) {
    return nullptr;
}

// An old print path whose table of formats is empty: nothing is printed.
JNIEXPORT void JNICALL PROBE_LOGGER(write)(JNIEnv *, jclass, jint, jstring) {}

} // extern "C"
