// Natives of GCEventNativeAgent and JVMTIGCProcessor: collections that Java has seen, and those that the
// JVM's own events would tell. Those that wait are not inside the agent meanwhile: what they touch is never
// freed.
#include "EventUtils.h"
#include "GCNotificator.h"
#include "Inside.h"
#include "JVMTIUtils.h"
#include "ProbeState.h"

#define GC_AGENT(name) Java_com_qel_morvex_norak_toolkit_ai_gccollector_GCEventNativeAgent_##name
#define GC_PROCESSOR(name) Java_com_qel_morvex_norak_toolkit_ai_gccollector_JVMTIGCProcessor_##name

extern "C" {

// 1, or 0 while the probe is stopped. Times in milliseconds since the epoch, spaces in bytes.
JNIEXPORT jint JNICALL GC_AGENT(putGCCycleToQueueNative)(JNIEnv *env, jclass, jlong startTime, jlong endTime,
                                                         jlong usedObjects, jlong usedObjectSpace,
                                                         jlong totalObjectSpace) {
    const Inside inside;
    if (!inside || probeDisabled) {
        return 0;
    }
    appendGCEvent(env, startTime, endTime, usedObjects, usedObjectSpace, totalObjectSpace);
    return 1;
}

// True if it was ended by a notice. Milliseconds, 0 for no end.
JNIEXPORT jboolean JNICALL GC_AGENT(waitForNativeNotification)(JNIEnv *, jclass, jlong timeout) {
    return waitForNotification(timeout) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT void JNICALL GC_AGENT(forceNotify)(JNIEnv *, jclass) {
    notifyWaiter();
}

JNIEXPORT jboolean JNICALL GC_AGENT(isGCEventCollectionSuppressed)(JNIEnv *, jclass) {
    return suppressGCEventCollection ? JNI_TRUE : JNI_FALSE;
}

// 2 with a processor of the JVM's own events, else 1.
JNIEXPORT jint JNICALL GC_AGENT(getModeNative)(JNIEnv *, jclass) {
    return gcProcessor != nullptr ? 2 : 1;
}

JNIEXPORT void JNICALL GC_PROCESSOR(startNative)(JNIEnv *, jclass) {
    if (gcProcessor != nullptr) {
        gcProcessor->startNative();
    }
}

JNIEXPORT void JNICALL GC_PROCESSOR(stopNative)(JNIEnv *, jclass) {
    if (gcProcessor != nullptr) {
        gcProcessor->stopNative();
    }
}

// Waits for the next collection and fills its start and finish into the first two of `out`. 1, or 0 with no
// processor, once it is stopped, and for an array that has no room.
JNIEXPORT jint JNICALL GC_PROCESSOR(getGCEvent)(JNIEnv *env, jclass, jlongArray out) {
    int64_t times[2];
    if (gcProcessor == nullptr || out == nullptr || env->GetArrayLength(out) < 2 ||
        !gcProcessor->getGCEvent(times)) {
        return 0;
    }
    const jlong values[2] = {times[0], times[1]};
    env->SetLongArrayRegion(out, 0, 2, values);
    return 1;
}

} // extern "C"
