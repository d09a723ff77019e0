// The native of ThreadManager that asks for the governor's estimate.
#include "NativeGate.h"
#include "ProbeLgKit.h"
#include "jnihelp.h"

#include <cstdio>

// A new string with the bytes that the agent holds by its own estimate; null before the memory monitor is up.
extern "C" JNIEXPORT jstring JNICALL Java_com_zykora_probe_ThreadManager_getNativeProbeStatus(JNIEnv *env,
                                                                                              jclass) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "ThreadManager.getNativeProbeStatus()");
    return native::with(memoryMonitor, jstring(nullptr), [env](const MemoryMonitor &monitor) {
        char text[100];
        snprintf(text, sizeof(text), "Approximate Zykora Native Memory consumed(bytes): %ld \n",
                 static_cast<long>(monitor.getMemoryTaken()));
        jstring result = env->NewStringUTF(text);
        clearException(env);
        return result;
    });
}
