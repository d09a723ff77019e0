// Natives that give out tokens of correlation: of ProbeController, CommandAgent and ProbeUtils.
#include "GPSTokenUtils.h"
#include "Inside.h"
#include "ProbeMgr.h"

namespace {

// Null when memory is out, and once the JVM has ended.
jbyteArray tokenOf(JNIEnv *env) {
    const Inside inside;
    return inside ? getGpsToken(env) : nullptr;
}

} // namespace

extern "C" {

// Throws java.lang.RuntimeException while the JVM is shutting down. Only the first call counts.
JNIEXPORT void JNICALL Java_com_zykora_probe_ProbeController_setupGps(JNIEnv *env, jclass, jstring regMask) {
    const Inside inside;
    if (inside && !ProbeMgr::checkJvmShuttingDown(env)) {
        setupGpsOnce(env, regMask);
    }
}

JNIEXPORT jbyteArray JNICALL Java_com_zykora_command_CommandAgent_getNativeGpsToken(JNIEnv *env, jclass) {
    return tokenOf(env);
}

JNIEXPORT jbyteArray JNICALL Java_com_zykora_probe_ProbeUtils_getNativeGpsToken(JNIEnv *env, jclass) {
    return tokenOf(env);
}

} // extern "C"
