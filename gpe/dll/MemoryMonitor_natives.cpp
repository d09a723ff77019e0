#include "MemoryMonitor.h"

#include "Inside.h"
#include "ProbeLgKit.h"
#include "jnihelp.h"

#include <cstdio>

// A new string with the bytes that the agent holds by its own estimate; null before the memory monitor is up.
extern "C" JNIEXPORT jstring JNICALL Java_com_zykora_probe_ThreadManager_getNativeProbeStatus(JNIEnv *env,
                                                                                              jclass) {
    AM_TRACE_SCOPE(ccTracer, LGK_DEBUG_MID, "ThreadManager.getNativeProbeStatus()");
    const Inside inside;
    const MemoryMonitor *monitor = memoryMonitor;
    if (!inside || monitor == nullptr) {
        return nullptr;
    }
    char text[100];
    snprintf(text, sizeof(text), "Approximate Zykora Native Memory consumed(bytes): %ld \n",
             static_cast<long>(monitor->getMemoryTaken()));
    jstring result = env->NewStringUTF(text);
    clearException(env);
    return result;
}
