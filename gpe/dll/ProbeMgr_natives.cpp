// Natives of com.zykora.probe: ProbeUtils (service), ProbeController, ProbeContextPersisterProxy.
// None of them throws, but ProbeController.startNativeProbe while the JVM is shutting down.
#include "ProbeContextPersister.h"
#include "ProbeMgr.h"
#include "jnihelp.h"

#include <cstdlib>
#include <new>

#define UTILS(name) Java_com_zykora_probe_ProbeUtils_##name
#define CONTROLLER(name) Java_com_zykora_probe_ProbeController_##name
#define CONTEXT(name) Java_com_zykora_probe_ProbeContextPersisterProxy_##name

namespace {

// Takes over `elements`; null becomes a Java null.
jintArray toJavaArray(JNIEnv *env, int32_t *elements) {
    const int32_t count = ProbeContextPersister::ctx_getElemCount();
    jintArray array = nullptr;
    if (elements != nullptr) {
        array = env->NewIntArray(count);
        if (!clearException(env) && array != nullptr) {
            env->SetIntArrayRegion(array, 0, count, elements);
        }
    }
    delete[] elements;
    return array;
}

// `count` elements for the caller to delete[], an exception pending if the array is shorter; null for null.
int32_t *toNativeArray(JNIEnv *env, jintArray array, jint count) {
    if (array == nullptr || count <= 0) {
        return nullptr;
    }
    int32_t *elements = new (std::nothrow) int32_t[static_cast<size_t>(count)];
    if (elements != nullptr) {
        env->GetIntArrayRegion(array, 0, count, elements);
    }
    return elements;
}

} // namespace

extern "C" {

// True if the managers stand.
JNIEXPORT jboolean JNICALL UTILS(customServiceStart)(JNIEnv *env, jclass) {
    return ProbeMgr::customServiceStart(env) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT void JNICALL UTILS(customServiceShutDown)(JNIEnv *env, jclass) {
    ProbeMgr::customServiceShutDown(env);
}

// Throws java.lang.RuntimeException while the JVM is shutting down.
JNIEXPORT void JNICALL CONTROLLER(startNativeProbe)(JNIEnv *env, jclass) {
    ProbeMgr::initialize();
    ProbeMgr::probeStart(env);
}

// Takes at least 10 seconds.
JNIEXPORT void JNICALL CONTROLLER(stopNativeProbe)(JNIEnv *env, jclass) {
    ProbeMgr::initialize();
    ProbeMgr::probeStop(env);
}

// 1001 to 1003; 0 before the context was read.
JNIEXPORT jint JNICALL CONTROLLER(getMonitoringLevel)(JNIEnv *, jclass) {
    return static_cast<jint>(ProbeMgr::convertProbeLevelToMonitoringLevel(probeLevel));
}

// False if the probe does not run, the level is invalid or nothing changes.
JNIEXPORT jboolean JNICALL CONTROLLER(setModLevel)(JNIEnv *, jclass, jint newMonitoringLevel) {
    if (probeDisabled) {
        return JNI_FALSE;
    }
    const uint32_t level =
        ProbeMgr::convertMonitoringLevelToProbeLevel(static_cast<uint32_t>(newMonitoringLevel));
    return ProbeMgr::updateProbeLevelContext(level) ? JNI_TRUE : JNI_FALSE;
}

// True while events are accepted.
JNIEXPORT jboolean JNICALL CONTROLLER(isNativeProbeEnabled)(JNIEnv *, jclass) {
    return probeDisabled ? JNI_FALSE : JNI_TRUE;
}

JNIEXPORT jboolean JNICALL CONTROLLER(restartOnToFromL1)(JNIEnv *, jclass) {
    return restartOnToFromL1Flag ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL CONTROLLER(isJvmpiEnabled)(JNIEnv *, jclass) {
    return jvmpi != nullptr ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL CONTROLLER(initializeJVMPI)(JNIEnv *, jclass) {
    return ProbeMgr::initializeJVMPI() ? JNI_TRUE : JNI_FALSE;
}

// The class filter; a null array is an empty list.
JNIEXPORT void JNICALL CONTROLLER(setIncludeExcludeList)(JNIEnv *env, jclass, jobjectArray il,
                                                         jobjectArray el) {
    ProbeMgr::setIncludeExcludeList(env, il, el);
}

// The four context elements as read from the file, without an effect on the agent; null without a context.
JNIEXPORT jintArray JNICALL CONTEXT(initProbeContext)(JNIEnv *env, jclass) {
    return toJavaArray(env, ProbeMgr::initProbeContext());
}

// The same, taken over by the agent.
JNIEXPORT jintArray JNICALL CONTEXT(synchInProbeContext)(JNIEnv *env, jclass) {
    return toJavaArray(env, ProbeMgr::synchInProbeContext());
}

// Sets `count` pairs of element id and value and writes the file. Always true.
JNIEXPORT jboolean JNICALL CONTEXT(synchOutProbeContext)(JNIEnv *env, jclass, jintArray ids, jintArray values,
                                                         jint count) {
    int32_t *nativeIds = toNativeArray(env, ids, count);
    bool failed = clearException(env);
    int32_t *nativeValues = toNativeArray(env, values, count);
    failed = clearException(env) || failed;
    if (!failed) {
        ProbeMgr::synchOutProbeContext(nativeIds, nativeValues, count);
    }
    delete[] nativeIds;
    delete[] nativeValues;
    return JNI_TRUE;
}

// Clears an earlier failure of the file, so that it is tried again; false without a context.
JNIEXPORT jboolean JNICALL CONTEXT(resetProbeContext)(JNIEnv *, jclass) {
    return ProbeMgr::resetProbeContext() ? JNI_TRUE : JNI_FALSE;
}

// Null until a file has been read.
JNIEXPORT jstring JNICALL CONTEXT(getProbeContextLastReadFilePath)(JNIEnv *env, jclass) {
    char *path = ProbeMgr::copyContextFilePath();
    jstring text = newPlatformString(env, path);
    free(path);
    return text;
}

} // extern "C"
