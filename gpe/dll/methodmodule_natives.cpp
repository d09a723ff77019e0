// Natives of the method trace: of MethodLevelModule, of BcmRuntime, and those of NativeEventAgentImpl that do
// the same. Those of methods pass the gate; classes are told of without it. None throws.
#include "NativeGate.h"
#include "methodmodule.h"
#include "zykora.h"

#define METHOD_LEVEL(name) Java_com_zykora_command_MethodLevelModule_##name
#define RUNTIME(name) Java_com_zykora_probe_l3trace_BcmRuntime_##name
#define EVENT_AGENT(name) Java_com_qel_morvex_norak_dc_eventagent_NativeEventAgentImpl_##name

using namespace native;

namespace {

Event::EventSubType subTypeOf(bool isExit) {
    return isExit ? Event::SUB_END : Event::SUB_START;
}

// Null names and signatures for an unload.
jboolean told(JNIEnv *env, jint sequence, jstring className, jintArray methodIds, jobjectArray names,
              jobjectArray signatures, Event::EventSubType subType) {
    const Inside inside;
    const ClassTexts texts = {className, methodIds, names, signatures};
    return inside && sendClassEvent(env, subType, sequence, texts) ? JNI_TRUE : JNI_FALSE;
}

} // namespace

extern "C" {

// ---------------------------------------------------------------- MethodLevelModule

JNIEXPORT void JNICALL METHOD_LEVEL(beforeMethod)(JNIEnv *env, jclass, jint methodId) {
    gated(env, [=] { appendMethodEvent(env, Event::SUB_START, methodId); });
}

JNIEXPORT void JNICALL METHOD_LEVEL(afterMethod)(JNIEnv *env, jclass, jint methodId) {
    gated(env, [=] { appendMethodEvent(env, Event::SUB_END, methodId); });
}

JNIEXPORT void JNICALL METHOD_LEVEL(initializeClass)(JNIEnv *env, jclass, jstring className,
                                                     jintArray methodIds, jobjectArray names,
                                                     jobjectArray signatures) {
    const Inside inside;
    if (inside) {
        registerClass(env, {className, methodIds, names, signatures});
    }
}

JNIEXPORT void JNICALL METHOD_LEVEL(unloadClass)(JNIEnv *env, jclass, jstring className) {
    const Inside inside;
    if (inside) {
        unloadRegisteredClass(env, className);
    }
}

// ---------------------------------------------------------------- BcmRuntime

// 0 is an entry, anything else an exit. 1 if it was appended, 0 if not.
JNIEXPORT jboolean JNICALL RUNTIME(appendL3Event)(JNIEnv *env, jclass, jbyte isExit, jint methodId) {
    const Admission admitted(env);
    return admitted && appendMethodEvent(env, subTypeOf(isExit != 0), methodId) ? JNI_TRUE : JNI_FALSE;
}

JNIEXPORT jboolean JNICALL RUNTIME(sendClassEventNative)(JNIEnv *env, jclass, jint sequence,
                                                         jstring className, jintArray methodIds,
                                                         jobjectArray names, jobjectArray signatures) {
    return told(env, sequence, className, methodIds, names, signatures, Event::SUB_CLASS_LOAD);
}

JNIEXPORT jboolean JNICALL RUNTIME(sendClassUnloadEventNative)(JNIEnv *env, jclass, jint sequence,
                                                               jstring className, jintArray methodIds) {
    return told(env, sequence, className, methodIds, nullptr, nullptr, Event::SUB_CLASS_UNLOAD);
}

// ---------------------------------------------------------------- NativeEventAgentImpl

JNIEXPORT jboolean JNICALL EVENT_AGENT(appendL3EventNative)(JNIEnv *env, jclass cls, jbyte isExit,
                                                            jint methodId) {
    return RUNTIME(appendL3Event)(env, cls, isExit, methodId);
}

JNIEXPORT jboolean JNICALL EVENT_AGENT(sendClassEventNative)(JNIEnv *env, jclass cls, jint sequence,
                                                             jstring className, jintArray methodIds,
                                                             jobjectArray names, jobjectArray signatures) {
    return RUNTIME(sendClassEventNative)(env, cls, sequence, className, methodIds, names, signatures);
}

JNIEXPORT jboolean JNICALL EVENT_AGENT(sendClassUnloadEventNative)(JNIEnv *env, jclass cls, jint sequence,
                                                                   jstring className, jintArray methodIds) {
    return RUNTIME(sendClassUnloadEventNative)(env, cls, sequence, className, methodIds);
}

// An entry that was held back: with the clocks of the moment at which it happened. 1 if it was appended.
JNIEXPORT jint JNICALL EVENT_AGENT(appendPendingEntryEventNative)(JNIEnv *env, jclass, jint methodId,
                                                                  jlong cpuTime, jint timeSec,
                                                                  jint timeUSec) {
    const Admission admitted(env);
    return admitted && appendPendingEntry(env, methodId, cpuTime, timeSec, timeUSec) ? 1 : 0;
}

} // extern "C"

jint registerRuntimeNatives(JNIEnv *env, jclass runtimeClass) {
    const JNINativeMethod methods[] = {
        nativeMethod("appendL3Event", "(BI)Z", RUNTIME(appendL3Event)),
        nativeMethod("sendClassEventNative", "(ILjava/lang/String;[I[Ljava/lang/String;[Ljava/lang/String;)Z",
                     RUNTIME(sendClassEventNative)),
        nativeMethod("sendClassUnloadEventNative", "(ILjava/lang/String;[I)Z",
                     RUNTIME(sendClassUnloadEventNative)),
    };
    return env->RegisterNatives(runtimeClass, methods, sizeof(methods) / sizeof(methods[0]));
}
