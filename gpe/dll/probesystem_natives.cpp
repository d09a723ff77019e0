// Natives of ProbeSystem, ProbeUtils (the build) and ProbePMI.
#include "ProbeState.h"
#include "jnihelp.h"
#include "probesystem.h"

#include <cstdlib>

#define SYSTEM(name) Java_com_zykora_probe_ProbeSystem_##name

namespace {

constexpr int STOP_STATUS = 12;

} // namespace

extern "C" {

// Takes the server's settings over from the class's static fields and answers in three of them. False if a
// field is missing; what was taken so far stays.
JNIEXPORT jboolean JNICALL SYSTEM(initializeProbe)(JNIEnv *env, jclass cls) {
    return initializeProbe(env, cls) ? JNI_TRUE : JNI_FALSE;
}

// Ends the process with status 12, at the Java side's request.
JNIEXPORT void JNICALL SYSTEM(stopNative)(JNIEnv *, jclass) {
    exit(STOP_STATUS);
}

JNIEXPORT jint JNICALL SYSTEM(getProcessId)(JNIEnv *, jclass) {
    return processId;
}

// There is no lock on the id file on this platform: always 0.
JNIEXPORT jint JNICALL SYSTEM(nativeLockIdFile)(JNIEnv *, jclass, jstring) {
    return 0;
}
JNIEXPORT jint JNICALL SYSTEM(nativeUnlockIdFile)(JNIEnv *, jclass, jstring) {
    return 0;
}

// The library's build time and date as one line.
JNIEXPORT jstring JNICALL Java_com_zykora_probe_ProbeUtils_getBuildTime(JNIEnv *env, jclass) {
    jstring text = env->NewStringUTF("JVMTI Version Lib, TIME : " __TIME__ " DATE: " __DATE__ "\n");
    clearException(env);
    return text;
}

// Nothing to do; always true.
JNIEXPORT jboolean JNICALL Java_com_zykora_probe_ProbePMI_initializeProbe(JNIEnv *, jclass) {
    return JNI_TRUE;
}

} // extern "C"
